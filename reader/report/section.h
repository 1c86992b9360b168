#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "text_range.h"

namespace reader {

struct Section {
    enum class Kind { kCommand, kFile };

    size_t index = 0;  // which of the report's sections, from 0
    std::string title;
    std::string detail;  // argv joined by blanks, or the path
    Kind kind = Kind::kFile;
    double seconds = 0;     // 0 while no footer has come
    std::string failure;    // without the asterisks; "" when nothing went wrong
    bool complete = false;  // its footer has come
    std::string expected;   // why a healthy device has this failure too; "" when none does
    // A command's output exactly, without the one newline that the service puts after it; a file's
    // bytes as they stand before the failure line or the footer. Of a section without a footer,
    // what there is before the next section.
    TextRange text;
    std::string captured;  // the text's beginning, if asked for, up to what looks like a section

    // Why it is no good: the failure or "not finished"; "" when it is good.
    std::string_view Trouble() const {
        return failure.empty() && !complete ? std::string_view("not finished") : failure;
    }
};

}  // namespace reader
