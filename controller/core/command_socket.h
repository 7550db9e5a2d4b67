// How a running controller is asked from outside: a Unix-domain socket beside its site file, for the same user
// only. A connection carries one line each way, the request and its answer.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <string>

// Where the controller that runs this site listens.
std::string CommandSocketPath(const std::string& siteFile);

class CCommandSocket {
 public:
  // Called again and again until it gives the answer; empty: not yet. Dropped when the asker goes away.
  using Answer = std::function<std::string()>;
  using Handler = std::function<Answer(const std::string& request)>;

  static constexpr size_t MOST_CLIENTS = 32;  // at a time; who says nothing makes room for further ones
  static constexpr size_t MOST_REQUEST_BYTES = 65536;
  static constexpr std::chrono::seconds IDLE{10};  // for the request, and for taking the answer

  explicit CCommandSocket(Handler handler) : m_Handler(std::move(handler)) {}
  ~CCommandSocket();  // and the socket is gone from its folder
  CCommandSocket(const CCommandSocket&) = delete;
  CCommandSocket& operator=(const CCommandSocket&) = delete;

  // Call it while holding the site file's lock: what an earlier controller left there is replaced. False with a
  // reason.
  bool Listen(const std::string& path, std::string* error);

  void Pass();  // again and again; never blocks

 private:
  struct Client {
    int Socket;
    std::string Request, Reply;
    Answer Pending;  // once the request is complete
    std::chrono::steady_clock::time_point Until;
  };
  void Accept();
  bool DropSilentOne();
  bool Serve(Client* client);  // false: done with it
  bool Receive(Client* client);
  static bool Send(Client* client);

  const Handler m_Handler;
  std::string m_Path;
  int m_iListener = -1;
  std::list<Client> m_Clients;
};

// The other side: one question. False with a reason when nobody listens there, no answer came within `seconds`,
// or a stop signal came.
bool AskController(const std::string& path, const std::string& request, int seconds, std::string* answer,
                   std::string* error);
