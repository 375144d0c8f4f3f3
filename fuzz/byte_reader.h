// ByteReader: splits a fuzz input into little-endian fields from the front,
// the way the seed files are written, so a seed reads as "header, then data".
// A field that runs past the end is zero-padded; `rest` hands out what is left.
// Not thread-safe; one reader per input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

class ByteReader {
 public:
  ByteReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  // The next sizeof(T) bytes as a little-endian T; missing bytes read as 0.
  template <typename T>
  T take() {
    static_assert(std::is_trivially_copyable<T>::value, "plain values only");
    T value{};
    const size_t n = remaining() < sizeof(T) ? remaining() : sizeof(T);
    memcpy(&value, data_ + pos_, n);
    pos_ += n;
    return value;
  }

  // The next byte reduced to [0, count); 0 when the input is used up.
  unsigned pick(unsigned count) { return count == 0 ? 0 : take<uint8_t>() % count; }

  bool empty() const { return pos_ >= size_; }
  size_t remaining() const { return size_ - pos_; }
  const uint8_t* rest() const { return data_ + pos_; }

  // Hands out up to `n` bytes and advances past them.
  const uint8_t* takeBytes(size_t n, size_t* got) {
    const uint8_t* at = data_ + pos_;
    *got = n < remaining() ? n : remaining();
    pos_ += *got;
    return at;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};
