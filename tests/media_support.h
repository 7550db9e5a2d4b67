// What the tests of the media model share: trees from text, items as text, a camera that is an address.
#pragma once

#include "host/base/gxmsg.h"
#include "media/media_camera.h"
#include "onvif/login_header.h"
#include "onvif/onvif_msg.h"
#include "tests/support/places.h"
#include "tests/support/scripted_server.h"
#include "util/gxtimer.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>

inline std::unique_ptr<CONVIFMsg> ParseXML(std::string text) {
  std::unique_ptr<CONVIFMsg> root(CONVIFMsg::CreateMSG(text.data(), static_cast<int>(text.size())));
  EXPECT_NE(root, nullptr) << text;
  return root;
}

inline std::string DataFile(const std::string& name) {
  std::ifstream file(std::string(TEST_DATA_DIR) + "/" + name);
  EXPECT_TRUE(file) << name;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void ForEachChild(CONVIFMsg* parent, const std::function<void(CONVIFMsg*)>& use) {
  for (CONVIFMsg* child = parent->Messages(); child != nullptr; child = child->Next()) use(child);
}

// Items from "text|1|2": numbers are those words that begin with a digit.
inline CGXItems Items(const std::string& text) {
  CGXItems items;
  for (size_t start = 0; start <= text.size();) {
    const size_t end = std::min(text.find('|', start), text.size());
    const std::string word = text.substr(start, end - start);
    if (!word.empty() && isdigit(word[0]))
      items.Append(std::stoi(word));
    else
      items.Append(word);
    start = end + 1;
  }
  return items;
}

template <class T>
void ReadMessage(T* record, const std::string& text) {
  CGXMSG msg(Items(text));
  record->ReadFrom(&msg);
}

inline std::string Dump(const CGXItems& items) {
  std::string text;
  for (const GXT_ITEM& item : items.Items()) {
    if (&item != items.Items().data()) text += '|';
    text += std::holds_alternative<int32_t>(item) ? std::to_string(std::get<int32_t>(item))
                                                  : std::get<std::string>(item);
  }
  return text;
}

template <class T>
std::string DumpMessage(const T& record) {
  CGXMSG msg;
  record.WriteTo(&msg);
  return Dump(msg.Items());
}

// A camera at one address of this machine.
class CFakeCamera : public CMediaCamera {
 public:
  explicit CFakeCamera(int port = 0) : m_Address("127.0.0.1:" + std::to_string(port)) {}
  CONVIFLoginHeader* CreateLoginHeader() override {
    return m_bLogin ? new CONVIFLoginHeader("admin", "pass", CGXTime(2026, 3, 4, 5, 6, 7), &m_Timer) : nullptr;
  }
  CGXString MediaURL() const override { return CGXString("http://" + m_Address + "/onvif/media"); }
  CGXString PTZURL() const override { return CGXString("http://" + m_Address + "/onvif/ptz"); }
  CGXString UserName() const override { return "admin"; }
  CGXString Password() const override { return "pass"; }
  CGXString StreamURL() const { return CGXString("rtsp://" + m_Address + "/live/1"); }

  bool m_bLogin = true;

 private:
  CGXTimer m_Timer;
  std::string m_Address;
};

inline std::string HTTPAnswer(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Type: application/soap+xml\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

// A description answer as a camera sends it: CSeq as asked, base and length included.
inline std::string DescribeAnswer(const std::string& sdp, const std::string& base = "") {
  return "RTSP/1.0 200 OK\r\nCSeq: 4\r\n" + (base.empty() ? "" : "Content-Base: " + base + "\r\n") +
         "Content-Type: application/sdp\r\nContent-Length: " + std::to_string(sdp.size()) + "\r\n\r\n" + sdp;
}
