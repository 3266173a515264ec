#include "platform/formats/names.h"

#include <algorithm>
#include <iterator>
#include <type_traits>

#include "platform/formats/upcase.h"
#include "support/utf.h"

namespace platform::posix {
namespace {

// What becomes of U+DC80 to U+DCFF without a partner: the byte that it escapes, or the three-byte
// form that every other surrogate without a partner has.
enum class Escapes { Bytes, Forms };

constexpr std::size_t kFormLength = 3;

bool IsLead(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsTrail(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
bool IsEscape(char16_t unit) { return unit >= 0xDC80 && unit <= 0xDCFF; }

char16_t EscapeOf(char byte) {
  return static_cast<char16_t>(0xDC00 | static_cast<unsigned char>(byte));
}

void AppendForm(char16_t surrogate, std::string* out) {
  out->push_back(static_cast<char>(0xED));
  out->push_back(static_cast<char>(0x80 | ((surrogate >> 6) & 0x3F)));
  out->push_back(static_cast<char>(0x80 | (surrogate & 0x3F)));
}

// The surrogate whose three-byte form `bytes` begins with, or 0.
char16_t FormAt(std::string_view bytes) {
  if (bytes.size() < kFormLength || bytes[0] != '\xED') {
    return 0;
  }
  const auto second = static_cast<unsigned char>(bytes[1]);
  const auto third = static_cast<unsigned char>(bytes[2]);
  if (second < 0xA0 || second > 0xBF || third < 0x80 || third > 0xBF) {
    return 0;
  }
  return static_cast<char16_t>(0xD000 | ((second & 0x3F) << 6) | (third & 0x3F));
}

// The index of the first surrogate without a partner from `from` on; the size when there is none.
std::size_t FindLoneSurrogate(cvn::StringView text, std::size_t from) {
  for (std::size_t i = from; i < text.size(); ++i) {
    if (IsLead(text[i]) && i + 1 < text.size() && IsTrail(text[i + 1])) {
      ++i;
    } else if (IsLead(text[i]) || IsTrail(text[i])) {
      return i;
    }
  }
  return text.size();
}

std::string Encode(cvn::StringView text, Escapes escapes) {
  std::string out;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t lone = FindLoneSurrogate(text, at);
    cvn::AppendUtf8(text.substr(at, lone - at), &out);
    if (lone < text.size() && escapes == Escapes::Bytes && IsEscape(text[lone])) {
      out.push_back(static_cast<char>(text[lone] & 0xFF));
    } else if (lone < text.size()) {
      AppendForm(text[lone], &out);
    }
    at = lone + 1;
  }
  return out;
}

// Reads bytes. `Escapes::Bytes` takes the three-byte form of an escape for three bytes to escape.
class Decoder {
 public:
  explicit Decoder(Escapes escapes) : escapes_(escapes) {}

  std::u16string Decode(std::string_view bytes) {
    bytes_ = bytes;
    while (at_ < bytes_.size()) {
      std::size_t wellFormed = bytes_.size() - at_;
      cvn::IsValidUtf8(bytes_.substr(at_), &wellFormed);
      if (wellFormed != 0) {
        out_.append(cvn::Utf8ToWide(bytes_.substr(at_, wellFormed)).AsView());
        at_ += wellFormed;
        leads_ = 0;
      } else {
        DecodeSurrogate();
      }
    }
    return std::move(out_);
  }

 private:
  void DecodeSurrogate() {
    const char16_t form = FormAt(bytes_.substr(at_));
    if (IsLead(form)) {
      out_.push_back(form);
      ++leads_;
      at_ += kFormLength;
      return;
    }
    EscapeLeads();
    if (form != 0 && (escapes_ == Escapes::Forms || !IsEscape(form))) {
      out_.push_back(form);
      at_ += kFormLength;
    } else {
      out_.push_back(EscapeOf(bytes_[at_++]));
    }
  }

  // A trail is about to follow: a lead just before it would become its partner, and be written
  // otherwise.
  void EscapeLeads() {
    out_.resize(out_.size() - leads_);
    for (std::size_t i = at_ - leads_ * kFormLength; i < at_; ++i) {
      out_.push_back(EscapeOf(bytes_[i]));
    }
    leads_ = 0;
  }

  const Escapes escapes_;
  std::string_view bytes_;
  std::size_t at_ = 0;
  std::size_t leads_ = 0;  // how many of the last units of out_ are leads from three-byte forms
  std::u16string out_;
};

// Escapes that stand in a row can spell UTF-8, which would be read back as what it spells. Such a
// text is written in three-byte forms; the text that would naturally have had those bytes steps
// aside in the same way. Each step is shorter than the one before, so this ends.
std::string EncodeRun(cvn::StringView run) {
  std::string bytes = Encode(run, Escapes::Bytes);
  if (std::none_of(run.begin(), run.end(), IsEscape)) {
    return bytes;
  }
  if (Decoder(Escapes::Bytes).Decode(bytes) == run) {
    const std::u16string other = Decoder(Escapes::Forms).Decode(bytes);
    if (other == run || EncodeRun(other) != bytes) {
      return bytes;
    }
  }
  return Encode(run, Escapes::Forms);
}

std::u16string DecodeRun(std::string_view run) {
  std::u16string text = Decoder(Escapes::Bytes).Decode(run);
  if (run.find('\xED') != std::string_view::npos) {
    std::u16string other = Decoder(Escapes::Forms).Decode(run);
    if (other != text && EncodeRun(other) == run) {
      return other;
    }
  }
  return text;
}

// Calls `ascii` and `other` in turn with the parts of `text` that are ASCII and those that are not.
template <typename View, typename Ascii, typename Other>
void ForEachRun(View text, Ascii ascii, Other other) {
  const auto isAscii = [](auto c) {
    return static_cast<std::make_unsigned_t<decltype(c)>>(c) < 0x80;
  };
  while (!text.empty()) {
    const auto ends = std::find_if_not(text.begin(), text.end(), isAscii);
    const auto length = static_cast<std::size_t>(ends - text.begin());
    ascii(text.substr(0, length));
    text.remove_prefix(length);
    const auto begins = std::find_if(text.begin(), text.end(), isAscii);
    const auto rest = static_cast<std::size_t>(begins - text.begin());
    if (rest != 0) {
      other(text.substr(0, rest));
      text.remove_prefix(rest);
    }
  }
}

}  // namespace

cvn::String ToWide(std::string_view hostText) {
  cvn::String out;
  out.Reserve(hostText.size());
  ForEachRun(
      hostText,
      [&out](std::string_view ascii) {
        for (const char c : ascii) {
          out.Append(static_cast<char16_t>(c));
        }
      },
      [&out](std::string_view run) { out.Append(DecodeRun(run)); });
  return out;
}

void AppendHostText(cvn::StringView text, std::string* out) {
  ForEachRun(
      text,
      [out](cvn::StringView ascii) {
        const std::size_t start = out->size();
        out->resize(start + ascii.size());
        std::transform(ascii.begin(), ascii.end(),
                       out->begin() + static_cast<std::ptrdiff_t>(start),
                       [](char16_t unit) { return static_cast<char>(unit); });
      },
      [out](cvn::StringView run) { out->append(EncodeRun(run)); });
}

cvn::StringView UpToZero(cvn::StringView text) { return text.substr(0, text.find(u'\0')); }

std::u16string Folded(cvn::StringView text) {
  std::u16string folded(text);
  std::transform(folded.begin(), folded.end(), folded.begin(), UpperCase);
  return folded;
}

bool IsAscii(std::string_view hostText) {
  return std::all_of(hostText.begin(), hostText.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

void AppendFolded(std::string_view hostName, std::u16string* out) {
  if (!IsAscii(hostName)) {
    *out += Folded(ToWide(hostName));
    return;
  }
  for (const char c : hostName) {
    out->push_back(UpperCase(static_cast<char16_t>(c)));
  }
}

}  // namespace platform::posix
