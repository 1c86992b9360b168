#include "redaction.h"

#include <algorithm>

#include "packed.h"
#include "tar_header.h"
#include "utf8.h"

namespace reader {
namespace {

constexpr size_t kBlock = size_t{256} * 1024;
constexpr int kMostDepth = 4;
constexpr size_t kMostFindings = 20;

// Files that hold no bytes as they are, but what they were encrypted or packed into.
std::string_view UnreadableFormat(std::string_view beginning) {
    struct Format {
        std::string_view beginning;
        std::string_view name;
    };
    using namespace std::string_view_literals;
    constexpr Format kFormats[] = {
            {"PK\x03\x04"sv, "a zip archive"},
            {"7z\xbc\xaf\x27\x1c"sv, "a 7z archive"},
            {"Rar!\x1a\x07"sv, "a rar archive"},
            {"BZh"sv, "packed by bzip2"},
            {"\x04\x22\x4d\x18"sv, "packed by lz4"},
            {"\x1f\x9d"sv, "packed by compress"},
            {"LZIP"sv, "packed by lzip"},
            {"\x89PNG\r\n"sv, "a picture"},
            {"\xff\xd8\xff"sv, "a picture"},
            {"Salted__"sv, "encrypted"},
            {"-----BEGIN PGP MESSAGE"sv, "encrypted"},
            {"age-encryption.org/"sv, "encrypted"},
            {"%PDF-"sv, "a document"},
            {"SQLite format 3\0"sv, "a database"},
    };
    for (const Format& format : kFormats) {
        if (beginning.starts_with(format.beginning)) return format.name;
    }
    return {};
}

// Of the bytes those that no text has: controls, and what is no UTF-8. Zeros are in logs of many
// programs, and in UTF-16.
uint64_t OddBytes(std::string_view bytes) {
    constexpr std::string_view kControls("\0\t\n\r\f\x1b", 6);
    uint64_t odd = 0;
    while (!bytes.empty()) {
        const Utf8Step step = NextUtf8(bytes);
        const char c = bytes.front();
        const bool control =
                static_cast<unsigned char>(c) < ' ' && kControls.find(c) == std::string_view::npos;
        if (!step.valid || control || c == 0x7f) odd += step.size;
        bytes.remove_prefix(step.size);
    }
    return odd;
}

}  // namespace

Redaction::Redaction(const RedactionOptions& options, Values& values)
    : options_(options), values_(values), scanner_(values) {}

std::string Redaction::Walk(Phase phase, ByteSource& from, Output& out, bool bundle) {
    phase_ = phase;
    error_.clear();
    where_.clear();
    depth_ = 0;
    member_ = 0;
    line_ = 1;
    if (bundle) {
        bundle_fault_.clear();
        const std::string fault = RedactContent(from, out);
        if (!fault.empty() && error_.empty()) error_ = "it is no tar archive: " + fault;
    } else {
        RedactText(from, out, true);
    }
    if (error_.empty()) error_ = from.error();
    return error_;
}

std::string Redaction::LearnReport(ByteSource& report) {
    Output nothing({}, nullptr);
    return Walk(Phase::kLearn, report, nothing, false);
}

std::string Redaction::LearnBundle(ByteSource& bundle) {
    Output nothing({}, nullptr);
    return Walk(Phase::kLearn, bundle, nothing, true);
}

namespace {

void Tell(Output& out, Changes* changes) {
    if (changes == nullptr) return;
    changes->places = std::move(out.places());
    changes->size = out.size();
}

}  // namespace

std::string Redaction::WriteReport(ByteSource& report, const Sink& sink, Changes* changes) {
    values_.Expand();
    values_.ForgetPlaces();
    Output out(sink, changes);
    const std::string fault = Walk(Phase::kWrite, report, out, false);
    Tell(out, changes);
    return fault;
}

std::string Redaction::WriteBundle(ByteSource& bundle, const Sink& sink, Changes* changes) {
    Output out(sink, changes);
    const std::string fault = Walk(Phase::kWrite, bundle, out, true);
    Tell(out, changes);
    return fault;
}

std::string Redaction::CheckReport(ByteSource& report) {
    values_.Expand();
    Output nothing({}, nullptr);
    return Walk(Phase::kCheck, report, nothing, false);
}

std::string Redaction::CheckBundle(ByteSource& bundle) {
    Output nothing({}, nullptr);
    return Walk(Phase::kCheck, bundle, nothing, true);
}

// A window moves over the bytes: what is to be written next has what came before it, and all that
// may belong to it, in sight.
void Redaction::RedactText(ByteSource& from, Output& out, bool records) {
    constexpr size_t kAround = Scanner::kLongest;
    constexpr size_t kSample = 4096;
    std::string window;
    size_t done = 0;  // in the window
    for (bool more = true; more && error_.empty() && !out.failed();) {
        while (window.size() < done + kBlock) {
            const std::string_view piece = from.Read(kBlock);
            more = !piece.empty();
            if (!more) break;
            if (phase_ == Phase::kLearn) {
                const std::string_view sample = piece.substr(0, kSample);
                looked_at_ += sample.size();
                odd_ += OddBytes(sample);
            }
            window += piece;
        }
        const std::string_view text = window;
        const size_t until = more ? text.size() - kAround : text.size();
        for (const Scanner::Hit& hit : scanner_.Scan(text, records)) {
            // Of records that follow one another some may have been taken.
            const bool begun = hit.begin < done && hit.end > done && hit.IsRecord();
            const size_t begin = begun ? done : hit.begin;
            if (begin < done) continue;
            if (begin >= until) break;
            out.Write(text.substr(done, begin - done));
            TakeHit(hit, text.substr(begin, hit.end - begin), text.substr(0, begin), out);
            done = hit.end;
        }
        if (done < until) {
            out.Write(text.substr(done, until - done));
            done = until;
        }
        const size_t seen = done - std::min(done, kAround);
        if (phase_ == Phase::kCheck) {
            line_ += static_cast<uint64_t>(std::count(
                    window.begin(), window.begin() + static_cast<ptrdiff_t>(seen), '\n'));
        }
        window.erase(0, seen);
        done -= seen;
        if (values_.full()) error_ = "it has more identifiers than any report";
    }
}

void Redaction::TakeHit(const Scanner::Hit& hit, std::string_view raw, std::string_view before,
                        Output& out) {
    if (phase_ == Phase::kLearn) return LearnHit(hit);
    if (phase_ == Phase::kCheck) return CheckHit(hit, raw, before);
    using What = Scanner::What;
    const bool record = (hit.what == What::kSensorRecord && options_.without_sensors) ||
                        (hit.what == What::kWornRecord && options_.without_times);
    if (record) return out.Replace("", raw);
    if (hit.what != What::kKnown && hit.what != What::kPattern) return out.Write(raw);
    uint32_t value = 0;
    if (hit.what == What::kKnown) {
        value = values_.form(hit.form).value;
        if (IsKept(values_.all()[value].kind)) return out.Write(raw);
    } else {
        if (IsKept(hit.kind) || IsOnlyStandIn(hit.kind, hit.text) ||
            ReachOf(hit.kind, Canonical(hit.kind, hit.text)) == Reach::kNowhere) {
            return out.Write(raw);
        }
        value = values_.Learn(hit.kind, hit.text);
    }
    values_.CountPlace(value);
    out.Replace(scanner_.Write(hit, values_.StandInOf(value)), raw);
}

void Redaction::LearnHit(const Scanner::Hit& hit) {
    const bool stand_in =
            hit.what == Scanner::What::kStandIn ||
            (hit.what == Scanner::What::kPattern && IsOnlyStandIn(hit.kind, hit.text));
    if (stand_in) return values_.Avoid(hit.text);
    if (hit.what != Scanner::What::kPattern || IsKept(hit.kind)) return;
    if (ReachOf(hit.kind, Canonical(hit.kind, hit.text)) == Reach::kNowhere) {
        values_.Refuse(hit.kind, hit.text);
    } else {
        values_.Learn(hit.kind, hit.text);
    }
}

void Redaction::CheckHit(const Scanner::Hit& hit, std::string_view raw, std::string_view before) {
    using What = Scanner::What;
    std::string what;
    const auto is_stand_in = [this](Kind kind, std::string_view text) {
        const std::string canonical = Canonical(kind, text);
        return values_.IsStandIn(canonical) ||
               (kind == Kind::kMac && values_.IsStandIn(ReversedBytes(canonical)));
    };
    if (hit.what == What::kKnown) {
        const Values::Value& value = values_.all()[values_.form(hit.form).value];
        if (IsKept(value.kind) || is_stand_in(value.kind, value.text)) return;
        what = std::string(KindName(value.kind)) + " " + value.text;
    } else if (hit.what == What::kPattern) {
        if (IsKept(hit.kind) || is_stand_in(hit.kind, hit.text) ||
            IsOnlyStandIn(hit.kind, hit.text) ||
            ReachOf(hit.kind, Canonical(hit.kind, hit.text)) == Reach::kNowhere) {
            return;
        }
        what = std::string(KindName(hit.kind)) + " " + hit.text;
    } else if ((hit.what == What::kSensorRecord && options_.without_sensors) ||
               (hit.what == What::kWornRecord && options_.without_times)) {
        what = std::string(raw);
    } else {
        return;
    }
    if (findings_.size() >= kMostFindings) return;
    const uint64_t line = line_ + static_cast<uint64_t>(std::ranges::count(before, '\n'));
    findings_.push_back(
            {(where_.empty() ? "" : where_ + ", ") + "line " + std::to_string(line), what});
}

std::string Redaction::Redacted(std::string_view text) {
    std::string redacted;
    const Sink sink = [&redacted](std::string_view bytes) {
        redacted += bytes;
        return true;
    };
    Output out(phase_ == Phase::kWrite ? sink : Sink(), nullptr);
    TextBytes bytes(text);
    RedactText(bytes, out, false);
    return phase_ == Phase::kWrite ? redacted : std::string(text);
}

std::string Redaction::RedactContent(ByteSource& from, Output& out) {
    std::string head = ReadExactly(from, TarHeader::kBlock);
    if (!from.error().empty()) return from.error();
    const bool tar = TarHeader::Parse(head).has_value();
    const Packing packing = PackingOf(head);
    const std::string_view format = UnreadableFormat(head);
    PartBytes bytes(from, std::move(head), UINT64_MAX);
    const bool outermost = depth_ == 0;
    if (tar || packing != Packing::kNone) {
        if (depth_ >= kMostDepth) return "packed too many times";
        ++depth_;
        const std::string why = tar ? RedactTar(bytes, out) : RedactPacked(bytes, out);
        --depth_;
        return why;
    }
    if (outermost) return "it doesn't begin as one";
    if (!format.empty() && !options_.keep_binary && phase_ != Phase::kWrite)
        return std::string(format);
    looked_at_ = odd_ = 0;
    line_ = 1;
    RedactText(bytes, out, false);
    if (phase_ == Phase::kLearn && !options_.keep_binary && odd_ * 10 > looked_at_ * 3) {
        return "unknown binary";
    }
    return from.error();
}

// What has nothing to be replaced stays packed as it was.
std::string Redaction::RedactPacked(ByteSource& from, Output& out) {
    Spool packed;
    const std::string head = ReadExactly(from, TarHeader::kBlock);
    packed.Write(head);
    for (;;) {
        const std::string_view piece = from.Read(kBlock);
        if (piece.empty() || !packed.Write(piece)) break;
    }
    packed.Rewind();
    const Packing packing = PackingOf(head);
    bool named = false;
    // A file packed by gzip may have its name in it.
    constexpr size_t kName = 10;
    constexpr int kHasName = 8;
    if (packing == Packing::kGzip && head.size() > kName && head[3] == kHasName) {
        const std::string name = head.substr(kName, head.find('\0', kName) - kName);
        named = Redacted(name) != name;
    }

    Spool spool;
    const Sink sink = [&spool](std::string_view bytes) { return spool.Write(bytes); };
    Output inner(out.writes() ? sink : Sink(), nullptr);
    std::string why;
    {
        UnpackedBytes unpacked(packed, packed.size());
        why = RedactContent(unpacked, inner);
        if (why.empty()) why = unpacked.error();
    }
    if (error_.empty()) error_ = packed.error() + spool.error();
    packed.Rewind();
    if (!why.empty() && options_.keep_binary) {
        RedactText(packed, out, false);
        return "";
    }
    if (!why.empty() || !out.writes()) return why;
    Spool again;
    if (!inner.changed() && !named) {
        out.Copy(packed);
        return "";
    }
    spool.Rewind();
    uint64_t at = 0;
    const std::string result = Pack(spool, packing, [&](std::string_view bytes) {
        std::string piece(bytes);
        // gzip's time of the file stays.
        constexpr uint64_t kTime = 4;
        constexpr uint64_t kTimeEnd = 8;
        for (uint64_t i = kTime; packing == Packing::kGzip && i < kTimeEnd; ++i) {
            if (i >= at && i < at + piece.size())
                piece[static_cast<size_t>(i - at)] = head[static_cast<size_t>(i)];
        }
        at += piece.size();
        return again.Write(piece);
    });
    if (error_.empty()) error_ = result + again.error();
    out.ReplaceAll(again, packed);
    return "";
}

}  // namespace reader
