// A look at an EDF/BDF header of our own, for when the EDF reader refuses a file and says only
// "format errors": which field, which byte and what was expected; and a copy of a file whose only
// fault is non-ASCII bytes in its text fields, those bytes read as spaces, so that it still opens.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rtmfmt {

struct EdfHeaderFindings {
    // The first fault other than a non-ASCII byte ("" when none was found), e.g.
    // "byte 236 (number of data records): 'x' is not a whole number".
    std::string fault;
    // Offsets of bytes outside printable ASCII (32..126) in the header's text, and a description
    // of the first one ("byte 95 (0xE9) in the local patient identification, character 88 of 80").
    std::vector<size_t> nonAscii;
    std::string firstNonAscii;
    std::string nonAsciiFields;  // the fields holding them, comma-separated
};

// Examines the header bytes (the fixed 256 bytes and the signal headers, as far as present).
EdfHeaderFindings examineEdfHeader(const std::string& header);

// Reads the header of the file at `path` (up to 256 + 256 x signals bytes); false when unreadable.
bool readEdfHeader(const std::string& path, std::string& header);

// Copies `path` to a new temporary file with the bytes at `offsets` replaced by spaces; the new
// file's name in `copy`. False with `error` set.
bool copyWithSpaces(const std::string& path, const std::vector<size_t>& offsets, std::string& copy, std::string& error);

}  // namespace rtmfmt
