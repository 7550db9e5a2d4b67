#include "controller/terminal/password.h"

#include "controller/core/stop_signal.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>

namespace {

// The terminal without echo, for a scope.
class CQuietTerminal {
 public:
  CQuietTerminal() : m_iTerminal(open("/dev/tty", O_RDWR | O_CLOEXEC)) {
    if (m_iTerminal < 0 || tcgetattr(m_iTerminal, &m_Before) != 0) return;
    termios quiet = m_Before;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    m_bQuiet = tcsetattr(m_iTerminal, TCSAFLUSH, &quiet) == 0;
  }
  ~CQuietTerminal() {
    if (m_bQuiet) tcsetattr(m_iTerminal, TCSAFLUSH, &m_Before);
    if (m_iTerminal >= 0) close(m_iTerminal);
  }
  CQuietTerminal(const CQuietTerminal&) = delete;
  CQuietTerminal& operator=(const CQuietTerminal&) = delete;
  bool Ready() const { return m_bQuiet; }

  void Say(const std::string& text) const {
    if (write(m_iTerminal, text.data(), text.size()) < 0) return;
  }

  // One line; false at its end or when a stop signal came.
  bool Line(std::string* line) const {
    for (;;) {
      pollfd wait[2] = {{m_iTerminal, POLLIN, 0}, {StopDescriptor(), POLLIN, 0}};
      if (poll(wait, 2, -1) < 0 && !StopRequested()) continue;
      char c = 0;
      if (StopRequested() || read(m_iTerminal, &c, 1) != 1) return false;
      if (c == '\n') return true;
      *line += c;
    }
  }

 private:
  int m_iTerminal;
  termios m_Before{};
  bool m_bQuiet = false;
};

}  // namespace

bool AskPassword(const std::string& user, std::string* password, std::string* error) {
  if (const char* given = std::getenv(PASSWORD_VARIABLE)) {
    *password = given;
    return true;
  }
  const CQuietTerminal terminal;
  if (!terminal.Ready()) {
    *error = "no password for user " + user + ": set " + PASSWORD_VARIABLE +
             ", or run this on a terminal to be asked";
    return false;
  }
  terminal.Say("Password of " + user + ": ");
  const bool given = terminal.Line(password);
  terminal.Say("\n");
  if (!given) *error = "no password given";
  return given;
}
