#include "kit/report.h"

#include <windows.h>

#include "kit/machine.h"
#include "kit/process.h"

namespace kit {
namespace {

constexpr std::size_t kLongestDetail = 300;

// On one line, without the kit's own folder, which may tell who the user is.
std::string Detail(const Kit& kit, std::string text) {
  ReplaceAll(&text, Utf8(kit.folder), "@KIT@");
  for (char& character : text) {
    if (static_cast<unsigned char>(character) < ' ' || character == '\x7f') {
      character = ' ';
    }
  }
  std::size_t end = std::min(text.size(), kLongestDetail);
  while (end < text.size() && (text[end] & 0xC0) == 0x80) {
    --end;  // not within a character
  }
  // What isn't UTF-8 becomes so.
  return Utf8(Wide(text.substr(0, end)));
}

std::string System() {
  using GetVersion = const char*(CDECL*)();
  const auto wine = reinterpret_cast<GetVersion>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version")));
  return wine != nullptr ? std::string("Wine ") + wine() : "Windows " + WindowsVersion();
}

}  // namespace

std::wstring WriteReport(const Kit& kit, const std::string& version, const Outcomes& outcomes,
                         const std::vector<std::wstring>& folders) {
  std::string text = "tessel-report 1\nversion " + version + "\nsystem " + System() +
                     (kit.isAdministrator ? "" : ", without an administrator") + "\n";
  for (const auto& [row, outcome] : outcomes) {
    text += row + "\t" + outcome.what + "\t" + Detail(kit, outcome.detail) + "\n";
  }
  text += "end " + std::to_string(outcomes.size()) + "\n";
  for (const std::wstring& folder : folders) {
    const std::wstring path = folder + L"\\windows-report.txt";
    if (!folder.empty() && WriteFile(path, text)) {
      return path;
    }
  }
  return L"";
}

}  // namespace kit
