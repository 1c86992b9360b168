#include "changes.h"

#include <algorithm>

namespace reader {
namespace {

constexpr size_t kPiece = size_t{64} * 1024;

}  // namespace

uint32_t Changes::Spell(std::string_view written, std::string_view original) {
    std::string key;
    key.reserve(written.size() + original.size() + 1);
    key += std::to_string(written.size());
    key += ' ';
    key += written;
    key += original;
    const auto [known, is_new] = known_.emplace(std::move(key), spellings.size());
    if (!is_new) return known->second;
    bytes_ += written.size() + original.size();
    if (bytes_ > kMostBytes) {
        complete = false;
        known_.erase(known);
        return 0;
    }
    spellings.emplace_back(written, original);
    return known->second;
}

void Output::Put(std::string_view bytes) {
    size_ += bytes.size();
    if (sink_ && !failed_ && !bytes.empty()) failed_ = !sink_(bytes);
}

void Output::Write(std::string_view bytes) {
    Put(bytes);
}

void Output::Replace(std::string_view written, std::string_view original) {
    if (written == original) return Put(written);
    changed_ = true;
    if (changes_ != nullptr && sink_) {
        const uint32_t spelling = changes_->Spell(written, original);
        if (changes_->complete) places_.push_back({size_, spelling});
    }
    Put(written);
}

void Output::ReplaceDifferences(std::string_view written, std::string_view original) {
    for (size_t at = 0; at < written.size();) {
        size_t same = at;
        while (same < written.size() && written[same] == original[same]) ++same;
        size_t other = same;
        while (other < written.size() && written[other] != original[other]) ++other;
        Write(written.substr(at, same - at));
        if (other > same)
            Replace(written.substr(same, other - same), original.substr(same, other - same));
        at = other;
    }
}

void Output::Copy(Spool& bytes) {
    bytes.Rewind();
    for (;;) {
        const std::string_view piece = bytes.Read(kPiece);
        if (piece.empty()) break;
        Put(piece);
    }
    failed_ = failed_ || !bytes.error().empty();
}

void Output::ReplaceAll(Spool& written, Spool& original) {
    changed_ = true;
    if (changes_ != nullptr && sink_) {
        written.Rewind();
        original.Rewind();
        const uint64_t size = written.size() + original.size();
        if (size > Changes::kMostBytes) {
            changes_->complete = false;
        } else {
            const uint32_t spelling =
                    changes_->Spell(ReadExactly(written, static_cast<size_t>(written.size())),
                                    ReadExactly(original, static_cast<size_t>(original.size())));
            if (changes_->complete) places_.push_back({size_, spelling});
        }
    }
    Copy(written);
}

void Output::Append(Spool& bytes, const Output& from) {
    for (const Changes::Place& place : from.places_) {
        places_.push_back({place.at + size_, place.spelling});
    }
    changed_ = changed_ || from.changed_;
    failed_ = failed_ || from.failed_;
    Copy(bytes);
}

bool Undo(ByteSource& from, const Changes& changes, const Sink& sink) {
    uint64_t at = 0;
    const auto copy = [&](uint64_t until) {
        while (at < until) {
            const std::string_view piece =
                    from.Read(static_cast<size_t>(std::min<uint64_t>(kPiece, until - at)));
            if (piece.empty() || !sink(piece)) return false;
            at += piece.size();
        }
        return true;
    };
    for (const Changes::Place& place : changes.places) {
        const auto& [written, original] = changes.spellings[place.spelling];
        if (place.at < at || !copy(place.at)) return false;
        if (ReadExactly(from, written.size()) != written || !sink(original)) return false;
        at += written.size();
    }
    return copy(changes.size);
}

}  // namespace reader
