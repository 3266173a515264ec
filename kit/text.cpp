#include "kit/text.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kit {
namespace {

namespace fs = std::filesystem;

std::string Told(std::string words, const Lines& actual) {
  constexpr std::size_t kMost = 12;
  const Lines shown(actual.begin(),
                    actual.begin() + static_cast<std::ptrdiff_t>(std::min(actual.size(), kMost)));
  return words + "; it has: " + Joined(shown, " | ");
}

}  // namespace

std::wstring Wide(std::string_view text) {
  const int size = static_cast<int>(text.size());
  std::wstring wide(text.size(), L'\0');
  wide.resize(static_cast<std::size_t>(
      ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), size)));
  return wide;
}

std::string Utf8(std::wstring_view text) {
  const int size = static_cast<int>(text.size());
  std::string bytes(text.size() * 3, '\0');
  bytes.resize(static_cast<std::size_t>(::WideCharToMultiByte(
      CP_UTF8, 0, text.data(), size, bytes.data(), size * 3, nullptr, nullptr)));
  return bytes;
}

bool BeginsWith(std::wstring_view text, std::wstring_view start) {
  return text.size() >= start.size() &&
         std::equal(start.begin(), start.end(), text.begin(),
                    [](wchar_t left, wchar_t right) { return (left | 32) == (right | 32); });
}

Lines LinesOf(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    if (lines.back().ends_with('\r')) {
      lines.back().pop_back();
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::string Joined(const Lines& lines, std::string_view between) {
  std::string text;
  for (const std::string& line : lines) {
    text.append(text.empty() ? "" : between).append(line);
  }
  return text;
}

void ReplaceAll(std::string* text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text->find(from, at)) != text->npos; at += to.size()) {
    text->replace(at, from.size(), to);
  }
}

std::string Unescaped(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      ++i;
      out += text[i] == 'n' ? '\n' : text[i] == 'r' ? '\r' : text[i];
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string Hex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

bool Matches(std::string_view pattern, std::string_view text) {
  constexpr std::string_view kStar = "[*]";
  std::vector<std::optional<char>> parts;  // a character each, or nothing for a wildcard
  while (!pattern.empty()) {
    const bool isStar = pattern.starts_with(kStar);
    parts.push_back(isStar || pattern[0] != '*' ? std::optional(isStar ? '*' : pattern[0])
                                                : std::nullopt);
    pattern.remove_prefix(isStar ? kStar.size() : 1);
  }
  std::size_t part = 0;
  std::optional<std::size_t> wildcard;  // the last one, and where it ends in the text
  std::size_t end = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (part < parts.size() && !parts[part]) {
      wildcard = part++;
      end = at;
    } else if (part < parts.size() && parts[part] == text[at]) {
      ++part;
      ++at;
    } else if (wildcard) {
      part = *wildcard + 1;
      at = ++end;
    } else {
      return false;
    }
  }
  while (part < parts.size() && !parts[part]) {
    ++part;
  }
  return part == parts.size();
}

std::string Differ(const Lines& expected, const Lines& actual, std::string_view what) {
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (i == actual.size()) {
      return Told(std::string(what) + ": missing: " + expected[i], actual);
    }
    if (!Matches(expected[i], actual[i])) {
      return std::string(what) + ": line " + std::to_string(i + 1) + " is '" + actual[i] +
             "', not '" + expected[i] + "'";
    }
  }
  return actual.size() > expected.size()
             ? std::string(what) + ": one too many: " + actual[expected.size()]
             : "";
}

std::string Lack(const Lines& expected, const Lines& actual, std::string_view what) {
  auto at = actual.begin();
  for (const std::string& pattern : expected) {
    at = std::find_if(at, actual.end(),
                      [&](const std::string& line) { return Matches(pattern, line); });
    if (at == actual.end()) {
      return Told(std::string(what) + ": no '" + pattern + "' in its place", actual);
    }
    ++at;
  }
  return "";
}

std::optional<std::string> ReadFile(const std::wstring& path) {
  std::ifstream file(fs::path(path), std::ios::binary);
  if (!file || fs::is_directory(path)) {
    return std::nullopt;
  }
  return std::string(std::istreambuf_iterator<char>(file), {});
}

bool WriteFile(const std::wstring& path, std::string_view content) {
  std::ofstream file(fs::path(path), std::ios::binary);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.close();
  return !file.fail();
}

bool Exists(const std::wstring& path) {
  return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::vector<std::wstring> NamesIn(const std::wstring& folder, const wchar_t* pattern) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry;
  const HANDLE search = ::FindFirstFileW((folder + L"\\" + pattern).c_str(), &entry);
  for (bool found = search != INVALID_HANDLE_VALUE; found;
       found = ::FindNextFileW(search, &entry) != 0) {
    const std::wstring name = entry.cFileName;
    if (name != L"." && name != L"..") {
      names.push_back(name);
    }
  }
  if (search != INVALID_HANDLE_VALUE) {
    ::FindClose(search);
  }
  std::sort(names.begin(), names.end());
  return names;
}

Lines EntriesBelow(const std::wstring& folder) {
  Lines entries;
  for (const std::wstring& name : NamesIn(folder, L"*")) {
    const DWORD attributes = ::GetFileAttributesW((folder + L"\\" + name).c_str());
    const bool isLink = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    const bool isFolder = !isLink && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    entries.push_back(Utf8(name) + (isLink ? "@" : isFolder ? "\\" : ""));
    if (isFolder) {
      for (const std::string& entry : EntriesBelow(folder + L"\\" + name)) {
        entries.push_back(Utf8(name) + "\\" + entry);
      }
    }
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

bool CopyTree(const std::wstring& from, const std::wstring& to) {
  std::error_code error;
  fs::create_directories(to, error);
  for (const std::wstring& name : NamesIn(from, L"*")) {
    const std::wstring source = from + L"\\" + name;
    const std::wstring target = to + L"\\" + name;
    if (fs::is_directory(source) ? !CopyTree(source, target)
                                 : ::CopyFileW(source.c_str(), target.c_str(), FALSE) == 0) {
      return false;
    }
    // The kit's own folder may be read-only.
    ::SetFileAttributesW(target.c_str(), FILE_ATTRIBUTE_NORMAL);
  }
  return true;
}

void RemoveTree(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    return;
  }
  if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  }
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    ::DeleteFileW(path.c_str());
    return;
  }
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
    for (const std::wstring& name : NamesIn(path, L"*")) {
      RemoveTree(path + L"\\" + name);
    }
  }
  ::RemoveDirectoryW(path.c_str());
}

}  // namespace kit
