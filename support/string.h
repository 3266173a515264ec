// The text type of the system.
#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <compare>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

#include "support/string_mem_mgr.h"

namespace cvn {

// A zero-ended text of CharT. Up to InlineCapacity characters live inside the object; longer ones
// live in a shared, guarded heap buffer, so that a copy costs the same whatever the length, and
// removing a prefix moves nothing. The first change of a shared buffer makes a copy of it.
//
// A text may hold zero characters; to a function that stops at the first, CStr() is then shorter
// than Length().
template <typename CharT, std::size_t InlineCapacity>
class StringT {
 public:
  using View = std::basic_string_view<CharT>;

  StringT() noexcept { SetInline(0); }
  StringT(View text) { Construct(text); }  // NOLINT(google-explicit-constructor)
  StringT(const CharT* text) {             // NOLINT(google-explicit-constructor): null is empty
    Construct(text == nullptr ? View() : View(text));
  }
  StringT(const StringT& other) { ShareOrCopy(other); }
  template <std::size_t OtherCapacity>
  StringT(const StringT<CharT, OtherCapacity>& other) {  // NOLINT(google-explicit-constructor)
    ShareOrCopy(other);
  }
  StringT(StringT&& other) noexcept { Take(other); }
  ~StringT() { DropBuffer(); }

  StringT& operator=(const StringT& other) {
    if (this != &other) {
      StringT copy(other);
      DropBuffer();
      Take(copy);
    }
    return *this;
  }
  StringT& operator=(StringT&& other) noexcept {
    if (this != &other) {
      DropBuffer();
      Take(other);
    }
    return *this;
  }

  const CharT* CStr() const noexcept { return data_; }
  std::size_t Length() const noexcept { return length_; }
  bool Empty() const noexcept { return length_ == 0; }
  View AsView() const noexcept { return View(data_, length_); }
  operator View() const noexcept { return AsView(); }  // NOLINT(google-explicit-constructor)
  CharT operator[](std::size_t index) const noexcept { return data_[index]; }

  // `text` may lie inside this text, here and in Append.
  void Assign(View text) {
    StringT fresh(text);
    DropBuffer();
    Take(fresh);
  }

  void Append(View text) {
    if (text.empty()) {
      return;
    }
    if (text.size() <= RoomAtEnd()) {
      std::copy(text.begin(), text.end(), data_ + length_);
      SetLength(length_ + text.size());
      return;
    }
    StringT grown;
    grown.Reserve(std::max(length_ + text.size(), 2 * length_));
    grown.AppendWithinRoom(AsView());
    grown.AppendWithinRoom(text);
    DropBuffer();
    Take(grown);
  }

  void Append(CharT character) {
    if (RoomAtEnd() == 0) {
      Append(View(&character, 1));
      return;
    }
    data_[length_] = character;
    SetLength(length_ + 1);
  }

  // Appends the up to `most` characters that `write` puts where it is told; it returns their end.
  template <typename Write>
  void AppendWritten(std::size_t most, Write write) {
    if (most > RoomAtEnd()) {
      Reserve(std::max(length_ + most, 2 * length_));
    }
    SetLength(static_cast<std::size_t>(write(data_ + length_) - data_));
  }

  // Empties the text. An unshared heap buffer is kept, since a text that was long often is again.
  void Clear() {
    if (buffer_ != nullptr && buffer_->owners == 1) {
      data_ = PayloadOf(buffer_);
      SetLength(0);
      return;
    }
    DropBuffer();
    SetInline(0);
  }

  // Empties the text, and overwrites the memory that held it. A shared buffer stays as it is for
  // its other owners.
  void Wipe() noexcept {
    const WipeReleased wipe;
    DropBuffer();
    StringMemMgr::Overwrite(inline_, sizeof(inline_));
    SetInline(0);
  }

  // Allocates once for a text that will grow to `length` characters.
  void Reserve(std::size_t length) {
    if (length <= length_ + RoomAtEnd()) {
      return;
    }
    auto* fresh = StringMemMgr::Allocate((length + 1) * sizeof(CharT));
    std::copy_n(data_, length_, PayloadOf(fresh));
    const std::size_t kept = length_;
    DropBuffer();
    buffer_ = fresh;
    data_ = PayloadOf(fresh);
    SetLength(kept);
  }

  // Removes up to `count` characters from `position` on. Takes constant time when they are the
  // first or, in an unshared text, the last.
  void Erase(std::size_t position, std::size_t count) {
    if (position >= length_ || count == 0) {
      return;
    }
    count = std::min(count, length_ - position);
    if (position == 0) {
      RemovePrefix(count);
    } else if (position + count == length_) {
      Truncate(position);
    } else {
      StringT rest;
      rest.Reserve(length_ - count);
      rest.AppendWithinRoom(AsView().substr(0, position));
      rest.AppendWithinRoom(AsView().substr(position + count));
      *this = std::move(rest);
    }
  }

  void RemovePrefix(std::size_t count) {
    if (count >= length_) {
      Clear();
    } else if (buffer_ != nullptr && length_ - count > InlineCapacity) {
      data_ += count;
      length_ -= count;
    } else if (count != 0) {
      Assign(AsView().substr(count));
    }
  }

  // Keeps the first `length` characters; does nothing when there are fewer.
  void Truncate(std::size_t length) {
    if (length >= length_) {
      return;
    }
    if (buffer_ != nullptr && buffer_->owners > 1) {
      Assign(AsView().substr(0, length));
    } else {
      SetLength(length);
    }
  }

 private:
  template <typename, std::size_t>
  friend class StringT;
  using Buffer = StringMemMgr::Buffer;

  static CharT* PayloadOf(Buffer* buffer) {
    return static_cast<CharT*>(StringMemMgr::Payload(buffer));
  }

  void SetInline(std::size_t length) noexcept {
    buffer_ = nullptr;
    data_ = inline_;
    SetLength(length);
  }

  void SetLength(std::size_t length) noexcept {
    length_ = length;
    data_[length] = CharT();
  }

  // Characters that fit behind the present ones without moving anything; none in a shared buffer.
  std::size_t RoomAtEnd() const noexcept {
    if (buffer_ == nullptr) {
      return InlineCapacity - length_;
    }
    if (buffer_->owners > 1) {
      return 0;
    }
    const CharT* end = PayloadOf(buffer_) + buffer_->capacity / sizeof(CharT);
    return static_cast<std::size_t>(end - data_) - length_ - 1;
  }

  void AppendWithinRoom(View text) noexcept {
    std::copy(text.begin(), text.end(), data_ + length_);
    SetLength(length_ + text.size());
  }

  void Construct(View text) {
    SetInline(0);
    Reserve(text.size());
    AppendWithinRoom(text);
  }

  template <std::size_t OtherCapacity>
  void ShareOrCopy(const StringT<CharT, OtherCapacity>& other) {
    if (other.buffer_ == nullptr || other.length_ <= InlineCapacity) {
      Construct(other.AsView());
      return;
    }
    StringMemMgr::AddOwner(other.buffer_);
    buffer_ = other.buffer_;
    data_ = other.data_;
    length_ = other.length_;
  }

  void Take(StringT& other) noexcept {
    if (other.buffer_ == nullptr) {
      SetInline(0);
      AppendWithinRoom(other.AsView());
    } else {
      buffer_ = other.buffer_;
      data_ = other.data_;
      length_ = other.length_;
    }
    other.SetInline(0);
  }

  void DropBuffer() noexcept {
    if (buffer_ != nullptr) {
      StringMemMgr::Release(buffer_);
      buffer_ = nullptr;
    }
  }

  CharT* data_;
  Buffer* buffer_;  // null while the text lives in inline_
  std::size_t length_;
  CharT inline_[InlineCapacity + 1];
};

template <typename CharT, std::size_t N, std::size_t M>
bool operator==(const StringT<CharT, N>& left, const StringT<CharT, M>& right) noexcept {
  return left.AsView() == right.AsView();
}
template <typename CharT, std::size_t N>
bool operator==(const StringT<CharT, N>& left,
                std::type_identity_t<std::basic_string_view<CharT>> right) noexcept {
  return left.AsView() == right;
}
// Ordered by code units, not by a language's rules.
template <typename CharT, std::size_t N, std::size_t M>
std::strong_ordering operator<=>(const StringT<CharT, N>& left,
                                 const StringT<CharT, M>& right) noexcept {
  return left.AsView() <=> right.AsView();
}
template <typename CharT, std::size_t N>
std::strong_ordering operator<=>(
    const StringT<CharT, N>& left,
    std::type_identity_t<std::basic_string_view<CharT>> right) noexcept {
  return left.AsView() <=> right;
}

// Names, values, messages.
using String = StringT<char16_t, 15>;
// A path. Up to MAX_PATH, the limit of most Windows calls, it needs no heap.
using PathString = StringT<char16_t, 260>;
// Read-only access to a text that somebody else keeps.
using StringView = std::u16string_view;

// The index of the first such unit at or after `from`, or StringView::npos. Same result as
// StringView::find, which compares unit by unit and took most of the time of long texts.
inline std::size_t FindUnit(StringView text, char16_t unit, std::size_t from = 0) {
  constexpr std::size_t kBlock = 8;  // units of a vector, whose comparison has two bits for each
  const __m128i wanted = _mm_set1_epi16(static_cast<short>(unit));
  const auto compare = [&](std::size_t at) {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + at));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(units, wanted)));
  };
  for (; from + kBlock <= text.size(); from += kBlock) {
    if (const unsigned found = compare(from)) {
      return from + static_cast<std::size_t>(std::countr_zero(found)) / 2;
    }
  }
  for (; from < text.size(); ++from) {
    if (text[from] == unit) {
      return from;
    }
  }
  return StringView::npos;
}

}  // namespace cvn
