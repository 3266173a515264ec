#include <unistd.h>

#include <string>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/linux/process_info.h"
#include "platform/process.h"
#include "platform/rehearsal.h"
#include "support/format.h"

namespace platform::process {

std::uint32_t CurrentId() { return static_cast<std::uint32_t>(getpid()); }

// There are no privileges by name: the account alone decides.
void EnablePrivileges(std::span<const cvn::StringView> /*names*/) {}

cvn::String UserSid(std::uint32_t id) {
  constexpr std::string_view kUser = "\nUid:\t";  // the real user, a tab, the effective one
  char buffer[4096];
  std::string_view status = posix::ReadProcessFile(id, "status", buffer);
  const std::size_t user = status.find(kUser);
  const std::size_t effective =
      user == std::string_view::npos ? user : status.find('\t', user + kUser.size());
  if (effective == std::string_view::npos) {
    return {};
  }
  status.remove_prefix(effective + 1);
  const std::string number(status.substr(0, status.find('\t')));
  return posix::ToWide(number == "0" ? "S-1-5-18" : "S-1-22-1-" + number);
}

Code Impersonate(cvn::StringView user, cvn::StringView domain, cvn::StringView /*password*/) {
  using rehearsal::Action;
  return posix::Report(rehearsal::IsOn() ? rehearsal::Answer(Action::Impersonate,
                                                             cvn::Format(u"%s\\%s", domain, user))
                                         : Code(kNotSupported));
}

Code Revert() { return kSuccess; }

}  // namespace platform::process
