// The text of INI files. The first line is "section|key|value"; the rest is the file.
#include <string>

#include "fuzz/input.h"
#include "platform/formats/ini_text.h"
#include "platform/linux/code_page.h"
#include "support/utf.h"

namespace tessel::fuzz {
namespace {

// A name or a value that comes back from a file as it went in.
bool IsPlain(std::string_view text) {
  const auto isPlain = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  };
  return !text.empty() && std::all_of(text.begin(), text.end(), isPlain);
}

void SetOne(Input* input) {
  const std::string_view line = input->Line();
  const std::string_view section = line.substr(0, line.find('|'));
  const std::string_view others = line.substr(std::min(section.size() + 1, line.size()));
  const std::string_view key = others.substr(0, others.find('|'));
  const std::string_view value = others.substr(std::min(key.size() + 1, others.size()));

  // The length of the file chooses the code page.
  constexpr std::uint32_t kPages[] = {1252, 1251, 1255, 874, 932, 950, 65001};
  std::string bytes(input->Rest());
  const std::size_t choice = bytes.size() % std::size(kPages);
  const platform::posix::CodePage page(kPages[choice]);
  const std::u16string text = page.Decode(bytes);
  constexpr std::size_t kPagesOfBytes = 4;
  Require(choice >= kPagesOfBytes || page.Encode(text) == bytes,
          "bytes go round through the code page");
  const cvn::String wideSection = cvn::Utf8ToWide(section);
  const cvn::String wideKey = cvn::Utf8ToWide(key);
  const cvn::String wideValue = cvn::Utf8ToWide(value);
  platform::posix::FindValue(text, wideSection, wideKey);
  const platform::posix::Edit edit =
      platform::posix::EditForValue(text, wideSection, wideKey, wideValue);
  Require(edit.offset + edit.length <= text.size(), "an edit lies within its text");
  const std::size_t start = platform::posix::ByteOffset(bytes, text, edit.offset);
  const std::size_t end = platform::posix::ByteOffset(bytes, text, edit.offset + edit.length);
  Require(start <= end && end <= bytes.size(), "an edit lies within its bytes");
  bytes.replace(start, end - start, page.Encode(edit.replacement));
  const std::u16string after = page.Decode(bytes);
  const auto found = platform::posix::FindValue(after, wideSection, wideKey);
  const bool arePlain = IsPlain(section) && IsPlain(key) && IsPlain(value);
  Require(!arePlain || (found && *found == wideValue.AsView()), "a value that was set is found");
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::fuzz::Input input(data, size);
  tessel::fuzz::SetOne(&input);
  return 0;
}
