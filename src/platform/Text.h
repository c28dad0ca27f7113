// Text between the encodings the engine meets: wide (UTF-32) strings from the
// host, UTF-8 for the file system and the log, and the UTF-16 path fields of
// the record that the mux program reads. Header-only, so that the library,
// the encoder libraries, `mux` and the command-line host share one copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ov {

namespace text_detail {

inline bool IsScalar(char32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

inline void AppendUtf8(std::string* out, char32_t c) {
  if (!IsScalar(c)) c = 0xFFFD;
  if (c < 0x80) {
    *out += static_cast<char>(c);
  } else if (c < 0x800) {
    *out += static_cast<char>(0xC0 | (c >> 6));
    *out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *out += static_cast<char>(0xE0 | (c >> 12));
    *out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *out += static_cast<char>(0xF0 | (c >> 18));
    *out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// The code point at text[*i], advancing *i past it; U+FFFD, one byte on, for
// a sequence that is cut short, overlong or not a scalar value.
inline char32_t DecodeUtf8(const std::string& text, size_t* i) {
  const auto lead = static_cast<unsigned char>(text[*i]);
  size_t extra = 0;
  if (lead >= 0xC2 && lead < 0xE0) {
    extra = 1;
  } else if (lead >= 0xE0 && lead < 0xF0) {
    extra = 2;
  } else if (lead >= 0xF0 && lead < 0xF5) {
    extra = 3;
  } else if (lead >= 0x80) {
    ++*i;
    return 0xFFFD;
  }
  if (*i + extra >= text.size()) {
    ++*i;
    return 0xFFFD;
  }
  char32_t c = extra == 0 ? lead : lead & (0x3F >> extra);
  for (size_t k = 1; k <= extra; ++k) {
    const auto next = static_cast<unsigned char>(text[*i + k]);
    if ((next & 0xC0) != 0x80) {
      ++*i;
      return 0xFFFD;
    }
    c = (c << 6) | (next & 0x3F);
  }
  static constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
  if (c < kLeast[extra] || !IsScalar(c)) {
    ++*i;
    return 0xFFFD;
  }
  *i += extra + 1;
  return c;
}

}  // namespace text_detail

inline std::string ToUtf8(const wchar_t* text) {
  std::string out;
  for (; text && *text; ++text) text_detail::AppendUtf8(&out, static_cast<char32_t>(*text));
  return out;
}

inline std::string ToUtf8(const std::wstring& text) { return ToUtf8(text.c_str()); }

inline std::wstring FromUtf8(const std::string& text) {
  std::wstring out;
  for (size_t i = 0; i < text.size();)
    out += static_cast<wchar_t>(text_detail::DecodeUtf8(text, &i));
  return out;
}

// Units of the text in UTF-16.
inline size_t Utf16Length(const std::wstring& text) {
  size_t n = 0;
  for (wchar_t wc : text) n += static_cast<uint32_t>(wc) >= 0x10000 ? 2 : 1;
  return n;
}

// Wide text into a UTF-16 field, terminated; the caller has checked that
// Utf16Length(text) leaves room for the terminator.
inline void CopyUtf16(char16_t* out, const std::wstring& text) {
  size_t n = 0;
  for (wchar_t wc : text) {
    const auto c = static_cast<uint32_t>(wc);
    if (c >= 0x10000) {
      out[n++] = static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out[n++] = static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      out[n++] = static_cast<char16_t>(c);
    }
  }
  out[n] = u'\0';
}

// A terminated UTF-16 field of `room` units to UTF-8; false for a field
// without its terminator or with a broken surrogate pair.
inline bool Utf16ToUtf8(const char16_t* field, size_t room, std::string* out) {
  out->clear();
  for (size_t i = 0; i < room; ++i) {
    char32_t c = field[i];
    if (c == 0) return true;
    if (c >= 0xD800 && c < 0xDC00) {
      const char32_t low = i + 1 < room ? field[i + 1] : 0;
      if (low < 0xDC00 || low >= 0xE000) return false;
      c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
      ++i;
    } else if (c >= 0xDC00 && c < 0xE000) {
      return false;
    }
    text_detail::AppendUtf8(out, c);
  }
  return false;
}

}  // namespace ov
