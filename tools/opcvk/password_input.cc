#include "password_input.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <system_error>
#include <termios.h>
#include <unistd.h>

#include "tool_error.h"

namespace opcvk {
namespace {

using foundation::crypto::SecureBytes;

constexpr std::size_t kChunk = 256;

std::string systemReason(int error) {
  return std::error_code(error, std::generic_category()).message();
}

// The code point of the UTF-8 sequence at `bytes[i]`, advancing `i`; false if it is not
// well-formed.
bool decodeUTF8(SecureBytes const& bytes, std::size_t& i, char32_t& out) {
  unsigned const lead = bytes[i];
  std::size_t length = 0;
  char32_t minimum = 0;
  if (lead < 0x80) {
    out = lead;
    ++i;
    return true;
  } else if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    minimum = 0x80;
    out = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    minimum = 0x800;
    out = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    minimum = 0x10000;
    out = lead & 0x07;
  } else {
    return false;
  }
  if (i + length > bytes.size()) return false;
  for (std::size_t k = 1; k < length; ++k) {
    unsigned const next = bytes[i + k];
    if ((next & 0xC0) != 0x80) return false;
    out = (out << 6) | (next & 0x3F);
  }
  if (out < minimum || out > 0x10FFFF || (out >= 0xD800 && out <= 0xDFFF)) return false;
  i += length;
  return true;
}

// The terminal's settings while echo is off, kept where a signal handler can reach them.
struct termios savedTerminal;
volatile std::sig_atomic_t echoIsOff = 0;

void restoreTerminal() {
  if (echoIsOff) {
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &savedTerminal);
    echoIsOff = 0;
  }
}

// An interrupt while echo is off would leave the user's terminal without echo: restore it,
// then end as the signal would have.
extern "C" void restoreTerminalAndRaise(int signal) {
  restoreTerminal();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// A stop (SIGTSTP) is left alone: the shell keeps the terminal's settings of a stopped job
// and gives them back when it continues.
int const kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// Echo off for the lifetime of the object, restored however it ends.
class EchoOff {
 public:
  EchoOff() {
    if (tcgetattr(STDIN_FILENO, &savedTerminal) != 0) {
      throw ToolError("Could not read the terminal's settings: " + systemReason(errno));
    }
    for (int signal : kSignals) previous_.push_back(std::signal(signal, restoreTerminalAndRaise));
    struct termios quiet = savedTerminal;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    quiet.c_lflag |= ECHONL;
    echoIsOff = 1;
    if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) != 0) {
      int const error = errno;
      restore();
      throw ToolError("Could not turn off the terminal's echo: " + systemReason(error));
    }
  }
  EchoOff(EchoOff const&) = delete;
  EchoOff& operator=(EchoOff const&) = delete;
  ~EchoOff() { restore(); }

 private:
  void restore() {
    restoreTerminal();
    for (std::size_t k = 0; k < previous_.size(); ++k) std::signal(kSignals[k], previous_[k]);
    previous_.clear();
  }

  std::vector<void (*)(int)> previous_;
};

// One line typed at the terminal, without its line break, byte by byte so that no buffer of
// the standard library keeps a copy.
SecureBytes readTerminalLine(char const* prompt) {
  SecureBytes line;
  line.reserve(kMaxPasswordBytes + 1);
  // Echo goes off before the prompt shows, and with it whatever was typed ahead of the
  // prompt, which would otherwise have been shown.
  EchoOff const echoOff;
  std::fputs(prompt, stderr);
  std::fflush(stderr);
  unsigned char byte = 0;
  for (;;) {
    ssize_t const got = read(STDIN_FILENO, &byte, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw ToolError("Could not read the password: " + systemReason(errno));
    if (got == 0 || byte == '\n') break;
    if (line.size() > kMaxPasswordBytes) continue;  // too long: refused below
    line.push_back(byte);
  }
  byte = 0;
  if (line.empty()) throw ToolError("No password was entered");
  if (line.size() > kMaxPasswordBytes) {
    throw ToolError("The password is longer than " + std::to_string(kMaxPasswordBytes) + " bytes");
  }
  return line;
}

// Whether two passwords are equal, in a time that depends on their lengths only.
bool samePassword(Password const& a, Password const& b) {
  if (a.size() != b.size()) return false;
  unsigned difference = 0;
  for (std::size_t k = 0; k < a.size(); ++k) difference |= static_cast<unsigned>(a[k] ^ b[k]);
  return difference == 0;
}

}  // namespace

PasswordText::PasswordText(Password const& password) : text_(password.begin(), password.end()) {}

PasswordText::~PasswordText() {
  foundation::crypto::secureWipe(&text_[0], text_.size() * sizeof(char16_t));
}

Password passwordFromUTF8(SecureBytes const& utf8, std::string const& notText) {
  Password password;
  password.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) {
    char32_t c = 0;
    if (!decodeUTF8(utf8, i, c)) throw ToolError(notText);
    if (c < 0x10000) {
      password.push_back(static_cast<char16_t>(c));
    } else {
      password.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
      password.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    }
    c = 0;
  }
  return password;
}

Password readPasswordFile(std::string const& path) {
  std::string const named = "the password file " + path;
  std::ifstream file;
  // No buffer of the stream's own: the bytes go straight into the wiped buffers below.
  file.rdbuf()->pubsetbuf(nullptr, 0);
  errno = 0;
  file.open(path, std::ios::in | std::ios::binary);
  if (!file.is_open()) {
    throw ToolError("Could not read " + named + ": " + systemReason(errno != 0 ? errno : ENOENT));
  }
  SecureBytes line;
  line.reserve(kMaxPasswordBytes + 2);
  SecureBytes chunk(kChunk);
  for (;;) {
    errno = 0;
    file.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(chunk.size()));
    auto const got = static_cast<std::size_t>(file.gcount());
    if (got == 0) {
      if (file.bad()) throw ToolError("Could not read " + named + ": " + systemReason(errno));
      break;
    }
    auto const end = chunk.begin() + static_cast<std::ptrdiff_t>(got);
    auto const newline = std::find(chunk.begin(), end, '\n');
    line.insert(line.end(), chunk.begin(), newline);
    if (newline != end || line.size() > kMaxPasswordBytes + 1) break;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.size() > kMaxPasswordBytes) {
    throw ToolError("The first line of " + named + " is longer than " +
                    std::to_string(kMaxPasswordBytes) + " bytes");
  }
  if (line.empty()) {
    throw ToolError("The password file " + path +
                    " has an empty first line: a password cannot be empty");
  }
  return passwordFromUTF8(line, "The password file " + path + " is not UTF-8 text");
}

bool standardInputIsTerminal() { return isatty(STDIN_FILENO) == 1; }

Password promptForPassword(bool confirm) {
  std::string const notText = "The password is not UTF-8 text";
  Password password = passwordFromUTF8(readTerminalLine("Password: "), notText);
  if (confirm) {
    Password const again = passwordFromUTF8(readTerminalLine("Repeat the password: "), notText);
    if (!samePassword(password, again)) throw ToolError("The two passwords do not match");
  }
  return password;
}

}  // namespace opcvk
