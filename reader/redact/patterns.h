#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "identifier.h"

namespace reader {

// What a pattern has found, and how far it may be believed.
struct Candidate {
    std::string_view text;  // all that is in sight
    size_t match;           // where the pattern's match begins
    size_t begin;           // the value
    size_t end;

    std::string_view value() const { return text.substr(begin, end - begin); }
    // '\n' at the ends of the text.
    char before(size_t at) const { return at == 0 ? '\n' : text[at - 1]; }
    char at(size_t i) const { return i < text.size() ? text[i] : '\n'; }
};

// How identifiers look that aren't known beforehand, and the places where they are named. Rows of
// one table in patterns.cpp: a new pattern is a new row there, with lines that have to match and
// lines that must not.
struct Pattern {
    Kind kind;
    const char* regex;  // RE2; each group is a value, without any the whole match is
    // Whether it is one; may narrow the value. Borders and check digits are judged here.
    bool (*judge)(Candidate& candidate);
    std::initializer_list<const char*> examples;  // with the values in backticks
    std::initializer_list<const char*> counterexamples;
};

std::span<const Pattern> Patterns();

}  // namespace reader
