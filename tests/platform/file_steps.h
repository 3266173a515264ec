// Operations on names in a test's folder as the rows of a table.
#pragma once

#include <span>

#include "platform/paths.h"
#include "platform/text_file.h"
#include "platform/whole_file.h"
#include "tests/platform/fixture.h"

namespace platform::test {

// A call on one or two names, and the code that it gives.
struct Step {
  Code (*call)(cvn::StringView name, cvn::StringView other);
  cvn::StringView name;
  cvn::StringView other = {};
  Code code = kSuccess;
  bool isSkippedUnderWine = false;
};

namespace steps {

using files::Access;
using files::Disposition;
using View = cvn::StringView;

inline Code OpenAs(View name, Access access, Disposition disposition) {
  files::File file;
  const Code code = files::Open(name, access, files::Share::None, disposition, &file);
  EXPECT_EQ(file.IsOpen(), code == kSuccess);
  return code != kSuccess || access == Access::Read ? code : file.Write(BytesOf("new"));
}

inline Code Read(View name, View) { return OpenAs(name, Access::Read, Disposition::OpenExisting); }
// These write "new" at the start.
inline Code Write(View name, View) {
  return OpenAs(name, Access::Write, Disposition::OpenExisting);
}
inline Code Update(View name, View) {
  return OpenAs(name, Access::ReadWrite, Disposition::OpenExisting);
}
inline Code Ensure(View name, View) { return OpenAs(name, Access::Write, Disposition::OpenAlways); }
inline Code Create(View name, View) { return OpenAs(name, Access::Write, Disposition::CreateNew); }
inline Code Empty(View name, View) {
  return OpenAs(name, Access::Write, Disposition::CreateAlways);
}
inline Code Append(View name, View) {
  TextFile file;
  const Code code = file.OpenForAppend(name);
  EXPECT_EQ(file.IsOpen(), code == kSuccess);
  return code;
}
inline Code Make(View name, View) { return files::CreateDirectory(name); }
inline Code MakeAll(View name, View) { return files::CreateDirectoryRecursive(name); }
inline Code Remove(View name, View) { return files::RemoveDirectory(name); }
inline Code Delete(View name, View) { return files::Delete(name); }
inline Code DeleteLater(View name, View) { return files::DeleteAtReboot(name); }
inline Code Replace(View name, View other) { return files::Replace(name, other); }
inline Code TakePlace(View name, View other) { return files::TakePlace(name, other); }
inline Code CopyAs(View name, View other, bool failIfExists) {
  const Code code = files::Copy(name, other, failIfExists);
  EXPECT_EQ(LastError(), code);  // also of a success
  if (code == kSuccess) {
    SetLastError(kUntouched);
  }
  return code;
}
// Saves "saved" as a new version, past what an ended process left of one.
inline Code Save(View name, View) {
  OutputFile output(name);
  const Code code = output.Write("saved", OutputFile::Readers::Anybody);
  return code == kSuccess ? output.Commit() : code;
}
inline Code Link(View name, View other) {
  return MakeOtherName(name, other) ? kSuccess : kGenFailure;
}
inline Code Copy(View name, View other) { return CopyAs(name, other, false); }
inline Code CopyNew(View name, View other) { return CopyAs(name, other, true); }
template <std::uint32_t flags>
Code Move(View name, View other) {
  return files::Move(name, other, flags);
}
template <files::Attributes attributes>
Code Mark(View name, View) {
  return files::SetAttributes(name, attributes);
}
inline Code Exists(View name, View) { return paths::Exists(name) ? kSuccess : LastError(); }
// Whether the file's content is `other`.
inline Code Has(View name, View other) {
  return ContentOf(name) == Utf8(other) ? kSuccess : kGenFailure;
}

}  // namespace steps

class StepsTest : public FolderTest {
 protected:
  void Run(std::span<const Step> table) const {
    for (const Step& step : table) {
      if (step.isSkippedUnderWine && RunsUnderWine()) {
        continue;
      }
      const cvn::String name = Path(step.name);
      const cvn::String other =
          step.call == steps::Has ? cvn::String(step.other) : Path(step.other);
      EXPECT_CODE(step.code, step.call(name, other))
          << "row " << &step - table.data() << ": " << Utf8(step.name) << ", " << Utf8(step.other);
    }
  }
};

}  // namespace platform::test
