// Passwords from a file or from the terminal, held in buffers that are wiped when released.
#ifndef TOOLS_OPCVK_PASSWORD_INPUT_H_
#define TOOLS_OPCVK_PASSWORD_INPUT_H_

#include <string>
#include <vector>

#include <foundation/crypto/secure_bytes.h>

namespace opcvk {

// A password: its UTF-16 code units in a buffer wiped when released or reallocated.  A
// vector rather than a string, because a string keeps short texts inside the object itself,
// where a wipe on release would miss them.
using Password = std::vector<char16_t, foundation::crypto::SecureAllocator<char16_t>>;

// A password handed to the library, which takes std::u16string: a copy made for the call
// and wiped when this object goes.  Not copyable.
class PasswordText {
 public:
  explicit PasswordText(Password const& password);
  PasswordText(PasswordText const&) = delete;
  PasswordText& operator=(PasswordText const&) = delete;
  ~PasswordText();

  std::u16string const& text() const { return text_; }

 private:
  std::u16string text_;
};

// The longest first line of a password file that is read, in bytes.  A longer one is
// more likely a file named by mistake than a password.
constexpr std::size_t kMaxPasswordBytes = 4096;

// The password in the first line of the file at `path` (an argument in the locale's
// encoding), without its line break ("\n" or "\r\n"); the file's bytes are UTF-8.  What
// follows the first line is not read.  Raises ToolError "Could not read the password file
// <path>: <reason>", "The password file <path> has an empty first line: a password cannot
// be empty", "The first line of the password file <path> is longer than 4096 bytes", or
// "The password file <path> is not UTF-8 text".  No message holds the password.
Password readPasswordFile(std::string const& path);

// The password of the UTF-8 bytes `utf8` (strictly: no overlong forms, surrogates or values
// beyond U+10FFFF).  Raises ToolError `notText` if they are not well-formed.
Password passwordFromUTF8(foundation::crypto::SecureBytes const& utf8, std::string const& notText);

// True if standard input is a terminal, where a password can be asked for.
bool standardInputIsTerminal();

// Asks for a password on the terminal: the prompt on standard error, the answer read from
// standard input with echo off (restored afterwards, also when the user interrupts).  With
// `confirm`, asks a second time and raises ToolError "The two passwords do not match" if
// the answers differ.  Raises ToolError "No password was entered" for an empty answer or the
// end of input.
Password promptForPassword(bool confirm);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PASSWORD_INPUT_H_
