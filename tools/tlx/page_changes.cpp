#include "tools/tlx/page_changes.h"

#include <algorithm>
#include <span>

#include "support/utf.h"
#include "tools/tlx/html_text.h"
#include "tools/tlx/page_frame.h"

namespace tlx {
namespace {

constexpr std::size_t kMostEntries = 2000;   // files, keys, services
constexpr std::size_t kMostValues = 200;     // of a key
constexpr std::size_t kMostFacts = 50;       // of a file or key; lines of a value
constexpr std::size_t kMostDiffLines = 500;  // of a file
// When a part of the section has so much, nothing more is begun in it.
constexpr std::size_t kMostBytes = std::size_t{4} << 20;
// So many begin unfolded.
constexpr std::size_t kMostOpen = 40;

std::string Tag(ChangeKind kind) {
  return std::string("<span class=\"tag\">") + NameOf(kind) + "</span> ";
}

// Lines as items of a list.
std::string Items(const cvn::List<cvn::String>& lines) {
  if (lines.empty()) {
    return {};
  }
  const std::size_t shown = std::min(lines.size(), kMostFacts);
  std::string html = "<ul class=\"facts\">\n";
  for (const cvn::String& line : std::span(lines).first(shown)) {
    html += "<li>" + LineText(cvn::WideToUtf8(line)) + "</li>\n";
  }
  return html + "</ul>\n" + LeftOut(lines.size() - shown, "line");
}

class ChangesWriter {
 public:
  explicit ChangesWriter(const ChangeReport& report) : report_(report) {}

  std::string Write() {
    if (report_.IsEmpty()) {
      html_ = "<p>Nothing on the machine changes.</p>\n";
    }
    AddFiles();
    AddKeys("Registry", report_.keys);
    AddServices();
    AddLines("At the next boot", report_.atNextBoot);
    AddLines("No longer at the next boot", report_.notAtNextBoot);
    AddLines("The run's own traces and events", report_.ownFiles);
    return std::move(html_);
  }

 private:
  void AddFiles();
  void AddFile(const FileNote& file);
  void AddContent(const tessel::ContentDiff& content);
  void AddDiffLine(const tessel::DiffLine& line);
  void AddKeys(const char* title, const cvn::List<KeyNote>& keys);
  void AddKey(const KeyNote& key);
  void AddValues(const cvn::List<ValueNote>& values);
  void AddServices();
  void AddLines(const char* title, const cvn::List<cvn::String>& lines);

  void AddHeading(const char* title, std::size_t count) {
    begin_ = html_.size();
    html_ += std::string("<h3>") + title + " (" + std::to_string(count) + ")</h3>\n";
  }
  // A line that unfolds.
  void Open(const std::string& summary) {
    html_ += opened_++ < kMostOpen ? "<details open>\n<summary>" : "<details>\n<summary>";
    html_ += summary + "</summary>\n<div>\n";
  }
  void Close() { html_ += "</div>\n</details>\n"; }

  // Shows items one by one, as far as there is room.
  template <typename Item, typename Show>
  void AddSome(const cvn::List<Item>& items, std::size_t most, std::string_view noun, Show show) {
    std::size_t shown = 0;
    while (shown < std::min(items.size(), most) && html_.size() - begin_ < kMostBytes) {
      show(items[shown++]);
    }
    left_ = LeftOut(items.size() - shown, noun);
  }

  const ChangeReport& report_;
  std::string html_;
  std::size_t begin_ = 0;  // of the part that is being written
  std::string left_;       // what AddSome left out, in words
  std::size_t opened_ = 0;
};

void ChangesWriter::AddFiles() {
  if (report_.files.empty()) {
    return;
  }
  AddHeading("Files", report_.files.size());
  AddSome(report_.files, kMostEntries, "file", [this](const FileNote& file) { AddFile(file); });
  html_ += left_;
}

void ChangesWriter::AddFile(const FileNote& file) {
  std::string summary = Tag(file.kind) + NameOf(file.what) + " " + Code(file.path);
  if (file.kind == ChangeKind::Moved) {
    summary += " from " + Code(file.movedFrom);
  }
  if (file.contained != 0) {
    summary += " with " + CountOf(file.contained, "name") + " in it";
  }
  if (file.facts.empty() && !file.content) {
    html_ += "<p class=\"change\">" + summary + "</p>\n";
    return;
  }
  Open(summary);
  html_ += Items(file.facts);
  if (file.content) {
    AddContent(*file.content);
  }
  Close();
}

void ChangesWriter::AddContent(const tessel::ContentDiff& content) {
  if (content.lines.empty()) {
    return;
  }
  if (content.form != tessel::ContentForm::Text) {
    html_ += std::string("<p>Compared by what it holds, not by its layout (") +
             NameOf(content.form) + ").</p>\n";
  }
  html_ += "<pre class=\"diff\">";
  AddSome(content.lines, kMostDiffLines, "line",
          [this](const tessel::DiffLine& line) { AddDiffLine(line); });
  html_ += "</pre>\n" + left_;
}

void ChangesWriter::AddDiffLine(const tessel::DiffLine& line) {
  const char* element = line.origin == '+' ? "ins" : line.origin == '-' ? "del" : "span";
  html_.append("<").append(element).append(line.origin == '@' ? " class=\"part\">" : ">");
  if (line.origin != '@') {
    html_.append(1, line.origin).append(" ");
  }
  html_.append(LineText(line.text)).append("\n</").append(element).append(">");
}

void ChangesWriter::AddKeys(const char* title, const cvn::List<KeyNote>& keys) {
  if (keys.empty()) {
    return;
  }
  AddHeading(title, keys.size());
  AddSome(keys, kMostEntries, "key", [this](const KeyNote& key) { AddKey(key); });
  html_ += left_;
}

void ChangesWriter::AddKey(const KeyNote& key) {
  const std::string summary = Tag(key.kind) + "key " + Code(key.path);
  if (key.facts.empty() && key.values.empty()) {
    html_ += "<p class=\"change\">" + summary + "</p>\n";
    return;
  }
  Open(summary);
  html_ += Items(key.facts);
  AddValues(key.values);
  Close();
}

std::string ValueLines(const cvn::List<cvn::String>& lines) {
  const std::size_t shown = std::min(lines.size(), kMostFacts);
  std::string html;
  for (const cvn::String& line : std::span(lines).first(shown)) {
    html += html.empty() ? "" : "<br>";
    html += Code(line);
  }
  return (lines.empty() ? "none" : html) + LeftOut(lines.size() - shown, "line");
}

void ChangesWriter::AddValues(const cvn::List<ValueNote>& values) {
  if (values.empty()) {
    return;
  }
  html_ += TableStart("Values of the key", {"Value", "Change", "Before", "After"});
  AddSome(values, kMostValues, "value", [this](const ValueNote& value) {
    html_ += "<tr><th scope=\"row\">";
    html_ += value.name.Empty() ? "(default)" : Code(value.name);
    html_ += std::string("</th><td class=\"word\">") + NameOf(value.kind) + "</td><td>";
    html_ += ValueLines(value.before) + "</td><td>" + ValueLines(value.after) + "</td></tr>\n";
  });
  html_.append(kTableEnd);
  html_ += left_;
}

void ChangesWriter::AddServices() {
  if (report_.services.empty()) {
    return;
  }
  AddHeading("Services", report_.services.size());
  AddSome(report_.services, kMostEntries, "service", [this](const ServiceNote& service) {
    Open(Tag(service.kind) + "service " + Code(service.name));
    AddSome(service.keys, kMostValues, "key", [this](const KeyNote& key) { AddKey(key); });
    html_ += left_;
    Close();
  });
  html_ += left_;
}

void ChangesWriter::AddLines(const char* title, const cvn::List<cvn::String>& lines) {
  if (!lines.empty()) {
    AddHeading(title, lines.size());
    html_ += Items(lines);
  }
}

}  // namespace

std::string ChangesBody(const ChangeReport& report) { return ChangesWriter(report).Write(); }

std::string CountsOf(const ChangeReport& report) {
  std::string text;
  const auto add = [&text](std::size_t count, const char* noun) {
    if (count != 0) {
      text += (text.empty() ? "" : ", ") + CountOf(count, noun);
    }
  };
  add(report.files.size(), "file");
  add(report.keys.size(), "registry key");
  add(report.services.size(), "service");
  add(report.atNextBoot.size() + report.notAtNextBoot.size(), "file operation");
  return text.empty() ? "nothing" : text;
}

}  // namespace tlx
