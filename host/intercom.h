// The intercom: clients that talk and listen, and the server that knows them.
#pragma once

#include "host/gxstring.h"
#include "host/gxthread.h"

#include <memory>
#include <vector>

class CIntercomClient;
class CSystemComponent;

enum CALL_TYPE : int { CALL_TYPE_NONE = 0, CALL_TYPE_TWO_WAY = 1 };

// Told what became of a call that it placed. On the main thread.
class CIcomCallDelegate {
 public:
  virtual ~CIcomCallDelegate();
  virtual void CallAccepted(CIntercomClient* client, CIcomCallDelegate* delegate, CALL_TYPE type) = 0;
  virtual void CallDeclined(CIntercomClient* client) = 0;
};

// One party of the intercom: a panel, an app, a camera.
class CIntercomClient {
 public:
  CIntercomClient();
  virtual ~CIntercomClient();  // takes itself out of the server

  virtual CSystemComponent* IcomBindingObject();  // the component that it belongs to; null when none
  virtual CGXString IcomName();
  virtual int IcomHardwareType();        // 3 a door station, 5 another camera
  virtual unsigned GetIP();              // network order
  virtual int InitiateCall(int button);  // places this client's call; non-zero when it was placed
  virtual int CancelCall(int button);
};

// Any thread. What Clients() gives may be used under the main-thread lock, under which clients come and go.
class CIntercomServer {
 public:
  static CIntercomServer* Instance();

  void RegisterClient(CIntercomClient* client);  // the caller keeps it; registering twice has no effect
  void RemoveClient(CIntercomClient* client);    // an unknown client is ignored
  bool HasClient(const CIntercomClient* client) const;
  std::vector<CIntercomClient*> Clients() const;

 private:
  CIntercomServer();
  ~CIntercomServer();
  struct State;
  std::unique_ptr<State> m_pState;
};
