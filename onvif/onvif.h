// SOAP 1.2 queries over HTTP (ONVIF Core 5) and WS-Discovery (ONVIF Core 7), with the small texts that they
// need.
//
// Queries and searches keep no state and may run on any thread. They block; on a cancelled CGXThread they end
// at once. A returned tree or device is new and the caller's to delete; null means failure, for whatever
// reason.
#pragma once

#include "host/base/gxlist.h"
#include "host/base/gxstring.h"
#include "onvif/device.h"
#include "onvif/onvif_msg.h"

#include <string_view>

class CGXTime;

class CONVIF {
 public:
  // ---- Attribute texts that bind a namespace ----
  static CGXString FormatXMLNS(CGXString uri);
  static CGXString FormatXMLNS(CGXString prefix, CGXString uri);
  static CGXString FormatXMLNS_A(CGXString uri) { return FormatXMLNS("a", uri); }
  static CGXString FormatXMLNS_M(CGXString uri) { return FormatXMLNS("m", uri); }
  static CGXString FormatXMLNS_D(CGXString uri) { return FormatXMLNS("d", uri); }
  static CGXString FormatXMLNS_S(CGXString uri) { return FormatXMLNS("s", uri); }
  static CGXString FormatXMLNS_TT(CGXString uri) { return FormatXMLNS("tt", uri); }
  static CGXString FormatXMLNS_XSI(CGXString uri) { return FormatXMLNS("xsi", uri); }
  static CGXString FormatXMLNS_XSD(CGXString uri) { return FormatXMLNS("xsd", uri); }
  static CGXString Prefix(CGXString prefix, CGXString name);  // "prefix:name"

  // ---- Queries. `timeout` in ms for each exchange. An answer is any XML that came back, a fault or an error
  // page included: success is that FindResponseMSG finds the operation. ----
  // The operation without arguments.
  static CONVIFMsg* DoQuery_HTTP(CGXString url, CGXString action, CGXString ns, int timeout);
  // A whole envelope, which stays the caller's.
  static CONVIFMsg* DoQuery_HTTP(CGXString url, CGXString action, CGXString ns, CONVIFMsg* envelope,
                                 int timeout);
  // The operation without arguments, logged in: asks for the camera's clock first, so two exchanges.
  static CONVIFMsg* DoQuery_HTTP_Security(CGXString url, CGXString user, CGXString password, CGXString action,
                                          CGXString ns, int timeout);

  // The camera's UTC clock in its answer to GetSystemDateAndTime; false when that holds none.
  static bool ReadCameraTime(const CONVIFMsg& answer, CGXTime* time);

  // Splits "http://host[:port]/path" (scheme in any case) into "host[:port]" and "/path". False without path or
  // with another scheme.
  static bool SplitURL(const CGXString& url, CGXString* address, CGXString* path);

  // ---- Texts ----
  static CGXString GenerateMSGID();               // "uuid:" and 36 characters, from rand()
  static CGXString GenerateRandomHex(int count);  // lower-case digits, from rand()
  // Words between blanks, CR and LF (those two only in front of a word), new CGXString each; the caller deletes
  // them.
  static void Split(CGXString text, CGXObList* words);
  // Characters before the first `delimiter` outside double quotes; `length` when there is none.
  static int LengthToDelim(const char* text, char delimiter, int length);

  // ---- Discovery ----
  static bool TransmitDiscoveryProbe(int socket);
  // Listens for 500 ms, and no longer than 125 ms once answers come; later ones are left for the next call.
  // Appends each new service URL (new CGXString).
  static void ListenForDeviceURL(int socket, CGXObList* urls);
  // Appends the "http:" addresses of one answer (NUL-terminated behind `length`, altered) that `urls` has not
  // yet.
  static void ReadProbeAnswer(char* answer, int length, CGXObList* urls);
  // Null also for a camera with a numeric address on another subnet, which is not asked.
  static CONVIFDevice* QueryDeviceAtURL(CGXString url, CGXString user, CGXString password);
  // Probes for two seconds, then asks every address that answered.
  static void DoDiscovery(CONVIFDeviceSet* found, CGXString user, CGXString password);
  // Looks up to five seconds for the camera with the identity of `wanted`; copies what it found into it.
  static bool FindDevice(CONVIFDevice* wanted, CGXString user, CGXString password);
};
