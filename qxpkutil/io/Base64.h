// Base64 for the binary arrays of mzML files: a decoder that fills a caller's buffer (so a
// reader can reuse one buffer for every array of a run) and an encoder for the writer.
// Standard alphabet only; whitespace inside the text is skipped, as XML line wrapping needs.
//
//   std::vector<std::uint8_t> bytes;
//   if (!qxpkutil::DecodeBase64("AAAAAAAA8D8=", 1 << 20, bytes)) { /* bad text */ }
//   std::string text = qxpkutil::EncodeBase64(bytes.data(), bytes.size());
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qxpkutil {

// Decodes `text` into `out` (resized to the decoded length). False, with `out` in an
// unspecified state, for a character outside the alphabet, padding anywhere but at the end,
// a length that is not a whole number of 4-character groups, or more than `maxBytes` bytes.
[[nodiscard]] bool DecodeBase64(std::string_view text, std::size_t maxBytes,
                                std::vector<std::uint8_t>& out);
// The same into out[0, capacity), `written` getting the decoded length: no copy when the
// bytes are to land in an array of the caller's.
[[nodiscard]] bool DecodeBase64(std::string_view text, std::uint8_t* out, std::size_t capacity,
                                std::size_t& written);

// Appends the base64 text of `size` bytes at `data` to `out`, padded, without line breaks.
void AppendBase64(const void* data, std::size_t size, std::string& out);
std::string EncodeBase64(const void* data, std::size_t size);

}  // namespace qxpkutil
