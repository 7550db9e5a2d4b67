#pragma once
// The camera's HTTP server: well-behaved HTTP/1.1 by default, and as awkward as real cameras by switch.
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>

struct CHttpRequest {
  std::string method, path;
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;

  std::string Header(const std::string& lowerName) const;
};

struct CHttpReply {
  int status = 200;
  std::string contentType = "text/plain", extraHeaders;  // extra: complete lines, each with its CR LF
  std::string body;
};

// How answers are sent, taken anew for each of them.
struct CHttpManner {
  std::string mode = "normal";  // the values of the quirk "http"
  bool keepOpen = false, continueFirst = false;
  int segmentMs = 0;
};

class CHttpFront {
 public:
  using Handler = std::function<CHttpReply(const CHttpRequest&)>;  // called on a thread of the connection's own
  using Manner = std::function<CHttpManner()>;

  CHttpFront(Handler handler, Manner manner) : m_handler(std::move(handler)), m_manner(std::move(manner)) {}
  ~CHttpFront() { Stop(); }
  // Listens on that address and port. False with a reason in `error`.
  bool Start(const std::string& address, int port, std::string* error);
  // Closes the listening socket and all connections; returns when their threads are gone. May start again.
  void Stop();

 private:
  struct CConnection {
    int socket = -1;
    bool done = false;
    std::thread thread;
  };

  void Accept();
  void Serve(int socket);
  bool ServeOne(int socket, std::string* pending);
  bool ReadRequest(int socket, std::string* pending, CHttpRequest* request);
  bool Receive(int socket, std::string* pending);
  bool Send(int socket, const std::string& bytes);
  bool SendPaced(int socket, const std::string& bytes, size_t piece, int pauseMs);
  bool SendReply(int socket, const CHttpReply& reply, const CHttpManner& manner, bool close);
  bool Pause(int ms);  // false: the server stops
  void WaitForEnd(int socket);
  void Reap(bool all);

  Handler m_handler;
  Manner m_manner;
  int m_listener = -1;
  std::thread m_accepter;
  std::mutex m_lock;  // guards what follows
  std::condition_variable m_stopped;
  bool m_stop = false;
  std::list<CConnection> m_connections;
};

// A listening TCP socket, or -1 with a reason that names the address and port.
int ListenAt(const std::string& address, int port, std::string* error);
