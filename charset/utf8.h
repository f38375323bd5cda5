// Structural UTF-8 validation.
//
// The validator only checks the shape of the bytes: a lead byte announces a
// sequence of 2 to 6 bytes by its leading one bits, and exactly that many
// continuation bytes (10xxxxxx) must follow. Overlong forms, encoded
// surrogates, values above U+10FFFF and the old 5- and 6-byte forms all pass.
// That is on purpose: the question asked here is "was this text meant to be
// UTF-8?", and CESU-8 text is repaired later rather than rejected here.
// Validation stops at the first bad byte, and a validator can be fed in
// pieces.
#pragma once

#include <cstdint>

namespace utf8 {

struct validate_t {
  std::uint64_t length = 0; // of the sequence in progress; 0 between characters
  std::uint64_t seen = 0;   // bytes of that sequence consumed so far
  bool valid = true;

  template <typename InputIt> bool scan(InputIt first, InputIt last) {
    for (; valid && first != last; ++first) {
      auto const c = static_cast<unsigned char>(*first);
      if (length != 0) {
        if ((c & 0xC0) != 0x80) {
          valid = false;
        } else if (++seen == length) {
          length = seen = 0;
        }
      } else if ((c & 0xC0) == 0x80) {
        valid = false;
      } else if (c >= 0x80) {
        std::uint64_t ones = 0;
        for (unsigned bit = 0x80; bit != 0 && (c & bit) != 0; bit >>= 1)
          ++ones;
        if (ones > 6) {
          valid = false;
        } else {
          length = ones;
          seen = 1;
        }
      }
    }
    return valid;
  }
};

// True when the whole range is structurally valid and ends between characters.
template <typename InputIt> bool is_valid(InputIt first, InputIt last) {
  validate_t validator;
  return validator.scan(first, last) && validator.length == 0;
}

} // namespace utf8
