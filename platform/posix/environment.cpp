#include "platform/environment.h"

#include <unistd.h>

#include <algorithm>
#include <climits>

#include "platform/posix/error_map.h"
#include "platform/posix/machine.h"
#include "platform/posix/names.h"
#include "support/containers.h"
#include "support/format.h"
#include "support/utf.h"

namespace platform::environment {
namespace {

using posix::Fail;
using posix::Folded;
using posix::UpToZero;

using Table = cvn::Map<std::u16string, cvn::String>;  // by the folded name

struct Variable {
  cvn::StringView name;
  cvn::StringView value;
};

// What has the same value on every machine.
constexpr Variable kFixed[] = {
    {u"ALLUSERSPROFILE", u"C:\\ProgramData"},
    {u"CommonProgramFiles", u"C:\\Program Files\\Common Files"},
    {u"CommonProgramFiles(x86)", u"C:\\Program Files (x86)\\Common Files"},
    {u"CommonProgramW6432", u"C:\\Program Files\\Common Files"},
    {u"ComSpec", u"C:\\Windows\\system32\\cmd.exe"},
    {u"DriverData", u"C:\\Windows\\System32\\Drivers\\DriverData"},
    {u"HOMEDRIVE", u"C:"},
    {u"OS", u"Windows_NT"},
    {u"PATHEXT", u".COM;.EXE;.BAT;.CMD;.VBS;.VBE;.JS;.JSE;.WSF;.WSH;.MSC"},
    {u"PROCESSOR_ARCHITECTURE", u"AMD64"},
    {u"ProgramData", u"C:\\ProgramData"},
    {u"ProgramFiles", u"C:\\Program Files"},
    {u"ProgramFiles(x86)", u"C:\\Program Files (x86)"},
    {u"ProgramW6432", u"C:\\Program Files"},
    {u"PUBLIC", u"C:\\Users\\Public"},
    {u"SystemDrive", u"C:"},
    {u"SystemRoot", u"C:\\Windows"},
    {u"windir", u"C:\\Windows"},
};

cvn::String Joined(cvn::StringView left, cvn::StringView right) {
  cvn::String joined(left);
  joined.Append(right);
  return joined;
}

// The host's name in the form of NetBIOS, which is what Windows keeps in COMPUTERNAME.
std::u16string ComputerName() {
  constexpr std::size_t kLongest = 15;
  char name[HOST_NAME_MAX + 1] = {};
  gethostname(name, sizeof(name) - 1);
  const cvn::String wide = posix::ToWide(name);
  return Folded(wide.AsView().substr(0, std::min(wide.AsView().find(u'.'), kLongest)));
}

void AddForUser(Table* table) {
  const auto add = [table](cvn::StringView name, cvn::StringView value) {
    table->insert_or_assign(Folded(name), value);
  };
  const std::u16string computer = ComputerName();
  const cvn::String profile = posix::UserProfile();
  const cvn::String temporary = posix::TemporaryFolder();
  add(u"COMPUTERNAME", computer);
  add(u"USERDOMAIN", computer);
  // The SYSTEM account goes by the computer's name.
  add(u"USERNAME", geteuid() == 0 ? Joined(computer, u"$") : posix::UserName());
  add(u"USERPROFILE", profile);
  add(u"HOMEPATH", profile.AsView().substr(2));
  add(u"APPDATA", Joined(profile, u"\\AppData\\Roaming"));
  add(u"LOCALAPPDATA", Joined(profile, u"\\AppData\\Local"));
  add(u"TEMP", temporary);
  add(u"TMP", temporary);
  add(u"NUMBER_OF_PROCESSORS", cvn::Format(u"%d", sysconf(_SC_NPROCESSORS_ONLN)));
}

Table MakeTable() {
  Table table;
  for (const Variable& variable : kFixed) {
    table.insert_or_assign(Folded(variable.name), variable.value);
  }
  AddForUser(&table);
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const cvn::String text = posix::ToWide(*entry);
    const std::size_t equals = text.AsView().find(u'=');
    if (equals != cvn::StringView::npos && equals != 0) {
      table.try_emplace(Folded(text.AsView().substr(0, equals)), text.AsView().substr(equals + 1));
    }
  }
  return table;
}

Table& Variables() {
  static Table table = MakeTable();
  return table;
}

}  // namespace

std::optional<cvn::String> Get(cvn::StringView name) {
  const auto found = Variables().find(Folded(UpToZero(name)));
  if (found == Variables().end()) {
    Fail(kEnvVarNotFound);
    return std::nullopt;
  }
  return found->second;
}

Code Set(cvn::StringView name, cvn::StringView value) {
  name = UpToZero(name);
  if (name.empty() || name.find(u'=') != cvn::StringView::npos) {
    return Fail(kInvalidParameter);
  }
  Variables().insert_or_assign(Folded(name), UpToZero(value));
  return kSuccess;
}

std::optional<cvn::String> Expand(cvn::StringView text) {
  cvn::String expanded;
  text = UpToZero(text);
  while (!text.empty()) {
    const std::size_t open = std::min(text.find(u'%'), text.size());
    expanded.Append(text.substr(0, open));
    text.remove_prefix(open);
    const std::size_t close = text.find(u'%', 1);
    if (close == cvn::StringView::npos) {
      expanded.Append(text);
      break;
    }
    const auto found = Variables().find(Folded(text.substr(1, close - 1)));
    expanded.Append(found == Variables().end() ? text.substr(0, close + 1)
                                               : found->second.AsView());
    text.remove_prefix(close + 1);
  }
  return expanded;
}

}  // namespace platform::environment
