// Little- and big-endian access to byte ranges. The unchecked getters are for
// ranges the caller has already bounded; ByteCursor checks every read against
// its range and reports a fault through the supplied page number.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string>

#include "jet/error.h"

namespace jet {

using Bytes = std::span<const uint8_t>;

inline uint8_t u8(const uint8_t* p) { return p[0]; }
inline uint16_t u16le(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t u24le(const uint8_t* p) { return p[0] | (p[1] << 8) | (uint32_t(p[2]) << 16); }
inline uint32_t u32le(const uint8_t* p) {
  return p[0] | (p[1] << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline uint64_t u64le(const uint8_t* p) { return u32le(p) | (uint64_t(u32le(p + 4)) << 32); }
inline uint32_t u24be(const uint8_t* p) { return (uint32_t(p[0]) << 16) | (p[1] << 8) | p[2]; }
inline uint32_t u32be(const uint8_t* p) {
  return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (p[2] << 8) | p[3];
}
inline double f64le(const uint8_t* p) {
  uint64_t v = u64le(p);
  double d;
  std::memcpy(&d, &v, 8);
  return d;
}
inline float f32le(const uint8_t* p) {
  uint32_t v = u32le(p);
  float f;
  std::memcpy(&f, &v, 4);
  return f;
}

// memcpy that may be handed an empty buffer: a null pointer is undefined
// behaviour for memcpy even with a length of 0, and an empty vector's data()
// is null.
inline void copyBytes(void* to, const void* from, size_t n) {
  if (n) std::memcpy(to, from, n);
}

inline void put16le(uint8_t* p, uint16_t v) { p[0] = uint8_t(v), p[1] = uint8_t(v >> 8); }
inline void put24le(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v), p[1] = uint8_t(v >> 8), p[2] = uint8_t(v >> 16);
}
inline void put32le(uint8_t* p, uint32_t v) {
  put16le(p, uint16_t(v)), put16le(p + 2, uint16_t(v >> 16));
}
inline void put64le(uint8_t* p, uint64_t v) { put32le(p, uint32_t(v)), put32le(p + 4, uint32_t(v >> 32)); }
inline void put24be(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v >> 16), p[1] = uint8_t(v >> 8), p[2] = uint8_t(v);
}
inline void put32be(uint8_t* p, uint32_t v) {
  p[0] = uint8_t(v >> 24), p[1] = uint8_t(v >> 16), p[2] = uint8_t(v >> 8), p[3] = uint8_t(v);
}

// Sequential reader over a bounded range; `page` and `what` name the
// structure being read in error messages.
class ByteCursor {
 public:
  ByteCursor(Bytes data, uint32_t page, const char* what) : data_(data), page_(page), what_(what) {}

  size_t pos() const { return pos_; }
  size_t remaining() const { return data_.size() - pos_; }
  void seek(size_t pos) {
    if (pos > data_.size()) fail(pos, 0);
    pos_ = pos;
  }
  void skip(size_t n) { need(n), pos_ += n; }
  uint8_t u8() { return need(1), data_[pos_++]; }
  uint16_t u16() {
    need(2);
    pos_ += 2;
    return u16le(&data_[pos_ - 2]);
  }
  uint32_t u32() {
    need(4);
    pos_ += 4;
    return u32le(&data_[pos_ - 4]);
  }
  Bytes take(size_t n) {
    need(n);
    pos_ += n;
    return data_.subspan(pos_ - n, n);
  }

 private:
  void need(size_t n) const {
    if (n > data_.size() - pos_) fail(pos_, n);
  }
  [[noreturn]] void fail(size_t pos, size_t n) const {
    throwCorrupt(page_, std::string(what_) + " truncated: " + std::to_string(n) +
                            " bytes wanted at offset " + std::to_string(pos) + " of " +
                            std::to_string(data_.size()));
  }

  Bytes data_;
  size_t pos_ = 0;
  uint32_t page_;
  const char* what_;
};

}  // namespace jet
