// Texts and files, as the kit's program needs them. Texts are in UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit {

using Lines = std::vector<std::string>;

std::wstring Wide(std::string_view text);
std::string Utf8(std::wstring_view text);
// Compares ASCII letters without regard to case.
bool BeginsWith(std::wstring_view text, std::wstring_view start);

// The lines of a text, without their ends; nothing stands behind the last end.
Lines LinesOf(std::string_view text);
std::string Joined(const Lines& lines, std::string_view between);
void ReplaceAll(std::string* text, std::string_view from, std::string_view to);
// The text in which '\\', '\n' and '\r' stand for a backslash and the ends of lines.
std::string Unescaped(std::string_view text);
std::string Hex(std::string_view bytes);

// '*' stands for any characters, '[*]' for itself.
bool Matches(std::string_view pattern, std::string_view text);
// What is wrong with lines that should be the expected ones, or nothing.
std::string Differ(const Lines& expected, const Lines& actual, std::string_view what);
// The same when others may stand between them.
std::string Lack(const Lines& expected, const Lines& actual, std::string_view what);

std::optional<std::string> ReadFile(const std::wstring& path);
bool WriteFile(const std::wstring& path, std::string_view content);
bool Exists(const std::wstring& path);
// Each entry's path from `folder` on, folders with a backslash behind them and links with '@'.
Lines EntriesBelow(const std::wstring& folder);
bool CopyTree(const std::wstring& from, const std::wstring& to);
// Removes a file, a link or a folder with all that is in it; not what links lead to.
void RemoveTree(const std::wstring& path);
// The names in a folder that a pattern finds.
std::vector<std::wstring> NamesIn(const std::wstring& folder, const wchar_t* pattern);

}  // namespace kit
