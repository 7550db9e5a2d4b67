// The camera's HTTP server: well-behaved HTTP/1.1 by default, and as awkward as real cameras by switch.
#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>

struct CHTTPRequest {
  std::string Method, Path;
  std::map<std::string, std::string> Headers;  // names in lower case
  std::string Body;

  std::string Header(const std::string& lowerName) const;
};

struct CHTTPReply {
  int Status = 200;
  std::string ContentType = "text/plain", ExtraHeaders;  // extra: complete lines, each with its CR LF
  std::string Body;
};

// How answers are sent, taken anew for each of them.
struct CHTTPManner {
  std::string Mode = "normal";  // the values of the quirk "http"
  bool KeepOpen = false, ContinueFirst = false;
  int SegmentMs = 0;
};

class CHTTPFront {
 public:
  using Handler = std::function<CHTTPReply(const CHTTPRequest&)>;  // called on a thread of the connection's own
  using Manner = std::function<CHTTPManner()>;

  CHTTPFront(Handler handler, Manner manner) : m_Handler(std::move(handler)), m_Manner(std::move(manner)) {}
  ~CHTTPFront() { Stop(); }
  // Listens on that address and port. False with a reason in `error`.
  bool Start(const std::string& address, int port, std::string* error);
  // Closes the listening socket and all connections; returns when their threads are gone. May start again.
  void Stop();

 private:
  struct CConnection {
    int Socket = -1;
    bool Done = false;
    std::thread Thread;
  };

  void Accept();
  void Serve(int socket);
  bool ServeOne(int socket, std::string* pending);
  bool ReadRequest(int socket, std::string* pending, CHTTPRequest* request);
  bool Receive(int socket, std::string* pending);
  bool Send(int socket, const std::string& bytes);
  bool SendPaced(int socket, const std::string& bytes, size_t piece, int pauseMs);
  bool SendReply(int socket, const CHTTPReply& reply, const CHTTPManner& manner, bool close);
  bool Pause(int ms);  // false: the server stops
  void WaitForEnd(int socket);
  void Reap(bool all);

  Handler m_Handler;
  Manner m_Manner;
  int m_IListener = -1;
  std::thread m_Accepter;
  std::mutex m_Lock;  // guards what follows
  std::condition_variable m_Stopped;
  bool m_BStop = false;
  std::list<CConnection> m_Connections;
};

// A listening TCP socket, or -1 with a reason that names the address and port.
int ListenAt(const std::string& address, int port, std::string* error);
