// A camera that answers each SOAP operation as a table says, on one address of this machine.
#pragma once

#include "tests/camera_support.h"
#include "tests/media_support.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

class CScriptedCamera {
 public:
  static constexpr const char* SILENT = "";  // the connection is closed without an answer

  CScriptedCamera() : m_Server([this](const std::string& request) { return Answer(request); }) {
    const std::string base = "http://127.0.0.1:" + std::to_string(m_Server.Port());
    Set("GetDeviceInformation",
        "<d:Manufacturer>Acme</d:Manufacturer><d:Model>One</d:Model><d:FirmwareVersion>1.0</d:FirmwareVersion>"
        "<d:SerialNumber>S1</d:SerialNumber><d:HardwareId>H1</d:HardwareId>");
    Set("GetSystemDateAndTime",
        "<d:SystemDateAndTime><d:UTCDateTime><t:Time><t:Hour>10</t:Hour><t:Minute>20</t:Minute><t:Second>30</"
        "t:Second>"
        "</t:Time><t:Date><t:Year>2031</t:Year><t:Month>5</t:Month><t:Day>6</t:Day></t:Date></d:UTCDateTime>"
        "</d:SystemDateAndTime>");
    Set("GetServices",
        "<d:Service><d:Namespace>http://x/ver20/media/wsdl</d:Namespace><d:XAddr>http://no/</d:XAddr>"
        "</d:Service><d:Service><d:Namespace>http://x/ver10/media/wsdl</d:Namespace><d:XAddr>" +
            base + "/services-media</d:XAddr></d:Service>");
    Set("GetCapabilities", "<d:Capabilities><t:Device><t:XAddr>" + base +
                               "/device</t:XAddr></t:Device><t:Media><t:XAddr>" + base +
                               "/caps-media</t:XAddr></t:Media></d:Capabilities>");
    Set("GetVideoEncoderConfigurations",
        "<m:Configurations token=\"E1\"><t:Name>Enc</t:Name><t:Encoding>H264</t:Encoding></m:Configurations>"
        "<m:Configurations token=\"E2\"><t:Name>Jay</t:Name><t:Encoding>JPEG</t:Encoding></m:Configurations>");
    Set("GetVideoEncoderConfigurationOptions", "<m:Options></m:Options>");
    Set("GetProfiles", Profile("P1", "H264", "E1", 1920, 1080) + Profile("P2", "JPEG", "E2", 640, 480));
    Set("GetSnapshotUri", "<m:MediaUri><t:Uri>http://127.0.0.1/snap?a=1&amp;b=2</t:Uri></m:MediaUri>");
    Set("GetStreamUri", "<m:MediaUri><t:Uri>rtsp://127.0.0.1:1/live</t:Uri></m:MediaUri>");
    Set("GetPresets", "<p:Preset token=\"1\"><t:Name>Door</t:Name></p:Preset>");
    Set("GetNodes", "");
    Set("Subscribe", "<w:SubscriptionReference></w:SubscriptionReference>");
  }

  static std::string Profile(const std::string& token, const std::string& encoding, const std::string& encoder,
                             int width, int height, const std::string& more = "") {
    return "<m:Profiles token=\"" + token + "\"><t:Name>" + token +
           "</t:Name><t:VideoEncoderConfiguration token=\"" + encoder + "\"><t:Encoding>" + encoding +
           "</t:Encoding><t:Resolution><t:Width>" + std::to_string(width) + "</t:Width><t:Height>" +
           std::to_string(height) + "</t:Height></t:Resolution></t:VideoEncoderConfiguration>" + more +
           "</m:Profiles>";
  }

  // What the response element of the operation holds from now on.
  void Set(const std::string& operation, const std::string& content) {
    SetWhole(operation, HTTPAnswer("<s:Envelope><s:Body><x:" + operation + "Response>" + content +
                                   "</x:" + operation + "Response></s:Body></s:Envelope>"));
  }
  void SetWhole(const std::string& operation, const std::string& answer) {
    const std::lock_guard lock(m_Mutex);
    m_Answers[operation] = answer;
  }
  void Fault(const std::string& operation) {
    SetWhole(operation,
             HTTPAnswer("<s:Envelope><s:Body><s:Fault><s:Code>no</s:Code></s:Fault></s:Body></s:Envelope>"));
  }
  // Called with the name of every operation before it is answered.
  void Watch(std::function<void(const std::string&)> watcher) {
    const std::lock_guard lock(m_Mutex);
    m_Watcher = std::move(watcher);
  }

  std::string URL(const std::string& path = "/device") const {
    return "http://127.0.0.1:" + std::to_string(m_Server.Port()) + path;
  }
  std::vector<std::string> Requests(const std::string& operation) const {
    std::vector<std::string> found;
    for (const std::string& request : m_Server.Requests())
      if (OperationOf(request) == operation) found.push_back(request);
    return found;
  }

 private:
  static std::string OperationOf(const std::string& request) {
    const size_t body = request.find("<s:Body");
    const size_t start = request.find('<', body + 1) + 1;
    return body == request.npos ? "" : request.substr(start, request.find_first_of(" />", start) - start);
  }
  std::string Answer(const std::string& request) {
    const std::string operation = OperationOf(request);
    std::function<void(const std::string&)> watcher;
    {
      const std::lock_guard lock(m_Mutex);
      watcher = m_Watcher;
    }
    if (watcher) watcher(operation);
    const std::lock_guard lock(m_Mutex);
    const auto found = m_Answers.find(operation);
    return found != m_Answers.end() ? found->second : "";
  }

  std::mutex m_Mutex;
  std::map<std::string, std::string> m_Answers;
  std::function<void(const std::string&)> m_Watcher;
  CScriptedServer m_Server;  // last: it calls into the others
};

// An entry of the user's settings, as items; `rates`: quality, GOV length, interval, pictures a second, kbit/s,
// size and H.264 profile.
inline std::string Entry(const std::string& profile, int transport = RTP_TRANSPORT_TCP,
                         const std::string& encoder = "<DEFAULT>", const std::string& encoding = "JPEG",
                         const std::string& rates = "60|0|1|10|4096|640|480|4") {
  return "|" + profile + "|" + profile + "|" + encoder + "|" + std::to_string(transport) + "|" + encoding +
         "|" + rates;
}

inline void SetEntries(CONVIFCam* camera, const std::vector<std::string>& h264,
                       const std::vector<std::string>& jpeg) {
  std::string text = "|" + std::to_string(h264.size());
  for (const std::string& entry : h264) text += entry;
  text += "||" + std::to_string(jpeg.size());
  for (const std::string& entry : jpeg) text += entry;
  CGXMSG msg(Items(text));
  camera->SetONVIFConfig(&msg);
}
