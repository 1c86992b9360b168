// What of a redaction knows that a bundle is a tar archive: its headers are changed where they
// stand, so that all else of them stays as it is.

#include <algorithm>
#include <optional>

#include "redaction.h"
#include "tar_header.h"

namespace reader {
namespace {

constexpr size_t kPiece = size_t{64} * 1024;
constexpr uint64_t kMostRecords = uint64_t{1} << 20;

uint64_t Padding(uint64_t size) {
    return (TarHeader::kBlock - size % TarHeader::kBlock) % TarHeader::kBlock;
}

void WritePadding(uint64_t size, std::string_view original, Output& out) {
    // Zeros, whatever was left in it.
    out.Replace(std::string(static_cast<size_t>(Padding(size)), '\0'), original);
}

bool IsNumber(std::string_view key) {
    constexpr std::string_view kKeys[] = {
            "size",       "mtime",      "atime",       "ctime",
            "uid",        "gid",        "hdrcharset",  "LIBARCHIVE.creationtime",
            "SCHILY.dev", "SCHILY.ino", "SCHILY.nlink"};
    return std::ranges::find(kKeys, key) != std::end(kKeys);
}

}  // namespace

// What stands before a member's header to go with it: records, or a name that is too long for it.
struct Redaction::Extra {
    TarHeader header;
    std::string body;
    std::string padding;
};

struct Redaction::Member {
    std::vector<Extra> extras;
    TarHeader header;
    uint64_t size = 0;  // of its body, which a record may tell
    bool size_in_record = false;
    bool sparse = false;
    bool cut = false;      // the archive ends in it
    uint64_t missing = 0;  // so many bytes before its end
    std::string padding;
    std::optional<std::string> long_name;
    std::optional<std::string> long_link;

    explicit Member(const TarHeader& its) : header(its), size(its.size()) {}
    std::string name() const { return long_name.value_or(header.Text(TarHeader::Field::kName)); }
    void Take(Extra extra);
};

void Redaction::Member::Take(Extra extra) {
    const std::string_view text = std::string_view(extra.body).substr(0, extra.body.find('\0'));
    if (extra.header.type() == 'L') long_name = text;
    if (extra.header.type() == 'K') long_link = text;
    if (extra.header.type() == 'x') {
        for (const PaxRecord& record : ParsePax(extra.body).value_or(std::vector<PaxRecord>())) {
            if (record.key == "path") long_name = record.value;
            if (record.key == "linkpath") long_link = record.value;
            sparse = sparse || record.key.starts_with("GNU.sparse.");
            if (record.key != "size" || record.value.empty() || record.value.size() > 18 ||
                !std::ranges::all_of(record.value, IsDigit) || header.size() == 0) {
                continue;
            }
            size = std::stoull(record.value);
            size_in_record = true;
        }
    }
    extras.push_back(std::move(extra));
}

// From where on it is no archive any more: looked through as it stands.
void Redaction::RedactRest(std::string head, ByteSource& from, Output& out,
                           const std::string& fault) {
    if (bundle_fault_.empty()) bundle_fault_ = fault;
    PartBytes rest(from, std::move(head), UINT64_MAX);
    RedactText(rest, out, false);
}

std::string Redaction::RedactTar(ByteSource& from, Output& out) {
    const std::string folder = where_;
    std::vector<Extra> extras;
    std::string waiting;  // the extras' bytes
    while (error_.empty() && !out.failed()) {
        where_ = folder;
        std::string block = ReadExactly(from, TarHeader::kBlock);
        if (block.size() < TarHeader::kBlock) {
            RedactRest(waiting + block, from, out, "its end is missing");
            break;
        }
        if (block.find_first_not_of('\0') == std::string::npos) {
            RedactRest(waiting + block, from, out, "");
            break;
        }
        const std::optional<TarHeader> header = TarHeader::Parse(block);
        if (!header) {
            RedactRest(waiting + block, from, out, "it is damaged");
            break;
        }
        const char type = header->type();
        if (type == 'x' || type == 'g' || type == 'L' || type == 'K') {
            const uint64_t size = header->size();
            const uint64_t whole = size + Padding(size);
            std::string body;
            if (size <= kMostRecords) body = ReadExactly(from, static_cast<size_t>(whole));
            if (body.size() < whole || waiting.size() > kMostRecords) {
                RedactRest(waiting + block + body, from, out, "it is damaged");
                break;
            }
            waiting += block + body;
            std::string padding = body.substr(static_cast<size_t>(size));
            body.resize(static_cast<size_t>(size));
            extras.push_back({*header, std::move(body), std::move(padding)});
            continue;
        }
        Member member(*header);
        for (Extra& extra : extras) member.Take(std::move(extra));
        extras.clear();
        waiting.clear();
        where_ = folder + (folder.empty() ? "" : ": ") + member.name();
        if (!RedactMember(from, member, out)) break;
    }
    where_ = folder;
    return "";
}

// False when the archive ends in it.
bool Redaction::RedactMember(ByteSource& from, Member& member, Output& out) {
    const uint64_t number = member_++;
    if (phase_ == Phase::kWrite) {
        if (const auto left_out = numbers_left_out_.find(number);
            left_out != numbers_left_out_.end()) {
            member_ = left_out->second.next;
            LeaveOut(from, member, out);
            return true;
        }
    }
    PartBytes body(from, "", member.size);
    Spool spool;
    const Sink sink = [&spool](std::string_view bytes) { return spool.Write(bytes); };
    Output body_out(out.writes() ? sink : Sink(), out.spellings());
    const bool sparse = (member.sparse || member.header.type() == 'S') && !options_.keep_binary;
    std::string why = sparse             ? "a sparse file"
                      : member.size == 0 ? ""
                                         : RedactContent(body, body_out);
    while (!body.Read(kPiece).empty()) {
    }
    if (error_.empty()) error_ = spool.error();
    member.missing = body.left();
    member.cut = member.missing > 0;
    if (!member.cut) {
        member.padding = ReadExactly(from, static_cast<size_t>(Padding(member.size)));
        member.cut = member.padding.size() < Padding(member.size);
    }
    if (member.cut && bundle_fault_.empty()) {
        bundle_fault_ = "it ends within " + where_;
    }
    if (phase_ == Phase::kLearn && !why.empty()) {
        numbers_left_out_[number] = {why, member_};
        left_out_.emplace_back(where_, why);
    } else if (phase_ == Phase::kCheck && !why.empty() && findings_.size() < 20) {
        findings_.push_back({where_, "it can't be read: " + why});
    }
    WriteMember(member, spool, body_out, out);
    return !member.cut;
}

// Redacts the names and texts of a member's own header. Returns those that it has no room for.
std::vector<PaxRecord> Redaction::RedactHeader(const Member& member, TarHeader& header) {
    std::vector<PaxRecord> too_long;
    for (const TarHeader::Field field : TarHeader::kTexts) {
        const bool is_name = field == TarHeader::Field::kName;
        const bool is_link = field == TarHeader::Field::kLink;
        const std::string field_text = header.Text(field);
        // Beside a longer one it is only that one's beginning.
        const std::string text = is_name   ? member.long_name.value_or(field_text)
                                 : is_link ? member.long_link.value_or(field_text)
                                           : field_text;
        const std::string redacted = Redacted(text);
        if (redacted == text) continue;
        const bool elsewhere = (is_name && member.long_name) || (is_link && member.long_link);
        if (!header.SetText(field, redacted) && !elsewhere && (is_name || is_link)) {
            too_long.push_back({is_name ? "path" : "linkpath", redacted});
        }
    }
    return too_long;
}

void Redaction::WriteExtra(const Member& member, const Extra& extra, uint64_t new_size,
                           Output& out) {
    std::string text;
    std::optional<std::vector<PaxRecord>> records;
    if (extra.header.type() == 'x' || extra.header.type() == 'g') records = ParsePax(extra.body);
    if (records) {
        bool same = true;
        for (PaxRecord& record : *records) {
            std::string value = IsNumber(record.key) ? record.value : Redacted(record.value);
            if (record.key == "size" && member.size_in_record && new_size != member.size) {
                value = std::to_string(new_size);
            }
            same = same && value == record.value;
            record.value = value;
        }
        text = same ? extra.body : FormatPax(*records);
    } else {
        text = Redacted(extra.body);
    }
    TarHeader header = extra.header;
    const std::string name = header.Text(TarHeader::Field::kName);
    const std::string redacted = Redacted(name);
    if (redacted != name) header.SetText(TarHeader::Field::kName, redacted);
    if (text.size() != extra.body.size()) header.SetSize(text.size());
    if (header.block() != extra.header.block()) header.Seal();
    out.ReplaceDifferences(header.block(), extra.header.block());
    out.Replace(text, extra.body);
    WritePadding(text.size(), extra.padding, out);
}

// Headers are looked at in every phase, and written in one of them.
void Redaction::WriteMember(Member& member, Spool& body, Output& body_out, Output& out) {
    TarHeader header = member.header;
    const uint64_t new_size = body_out.writes() ? body_out.size() + member.missing : member.size;
    const std::vector<PaxRecord> too_long = RedactHeader(member, header);
    if (new_size != member.size && !member.size_in_record) header.SetSize(new_size);
    if (header.block() != member.header.block()) header.Seal();

    for (const Extra& extra : member.extras) WriteExtra(member, extra, new_size, out);
    if (!too_long.empty()) {
        const std::string text = FormatPax(too_long);
        out.Replace(TarHeader::ForRecords(text.size()).block() + text +
                            std::string(static_cast<size_t>(Padding(text.size())), '\0'),
                    "");
    }
    out.ReplaceDifferences(header.block(), member.header.block());
    out.Append(body, body_out);
    if (member.cut) {
        out.Replace(std::string(member.padding.size(), '\0'), member.padding);
    } else {
        WritePadding(new_size, member.padding, out);
    }
}

void Redaction::LeaveOut(ByteSource& from, const Member& member, Output& out) {
    Spool original;
    for (const Extra& extra : member.extras) {
        original.Write(extra.header.block());
        original.Write(extra.body);
        original.Write(extra.padding);
    }
    original.Write(member.header.block());
    PartBytes body(from, "", member.size + Padding(member.size));
    for (;;) {
        const std::string_view piece = body.Read(kPiece);
        if (piece.empty() || !original.Write(piece)) break;
    }
    if (error_.empty()) error_ = original.error();
    Spool nothing;
    out.ReplaceAll(nothing, original);
}

}  // namespace reader
