// The lines of a directive stream, taken apart, for whoever applies them.
//
// A stream is read line by line as UTF-8, so that its names meet the names of
// the runtime's metadata (a byte that is not part of a well-formed sequence
// widens unit for byte), a line of more bytes than the line size arriving in
// pieces; each line is taken apart (DirectiveKeywords::parse)
// and handed over in order, comments and lines without a keyword left out.
// A large regular file, which a generated directive file is, is read and
// taken apart on a thread of its own while the caller's thread applies the
// lines before: the first module load of the process waits for both.
//
// Contract: apply runs on the calling thread, line after line; the reading
// stops at the first line it fails, and read returns that status. The stream
// is read by one thread at a time and is left where the reading stopped.
#pragma once

#include <cstdio>
#include <functional>

#include "policy/DirectiveKeywords.h"
#include "runtime/CorTypes.h"

class DirectiveLineReader {
public:
    using Apply = std::function<HRESULT(const DirectiveLine&)>;

    // The status of the last line applied; E_FAIL where memory ran out while
    // reading, the lines before standing.
    static HRESULT read(FILE* stream, const Apply& apply);
};
