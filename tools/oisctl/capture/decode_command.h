#pragma once
// oisctl decode: captured request codes, records and hub records as text.

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace oisctl {

// Decodes every item of `inputs`; without any, those of `file` ("-" is standard input), or else of
// `standardInput`. One line per item goes to `out`, as text or as JSON, and one line per item that cannot be
// decoded to `err`.
//
// An item is one line; one that ends in ',' or '\', or has an open '{', goes on with the next. '#' begins a
// comment.
//   CODE             a request in hex, its name, or a line of strace with an ioctl
//   CODE: RECORD     with the bytes that went with it; "CODE: RECORD -> RECORD" with what came back
//   RECORD           64 bytes to the sensor hub; "RECORD -> RECORD" with its answer
// Bytes are hex digits in memory order, with blanks, commas, braces and 0x as they are found in captures.
//
// 0, or kWrongInput when something could not be decoded.
int runDecode(const std::vector<std::string>& inputs, const std::optional<std::string>& file, bool json,
              std::istream& standardInput, std::ostream& out, std::ostream& err);

}  // namespace oisctl
