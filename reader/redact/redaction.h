#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "changes.h"
#include "scanner.h"
#include "sink.h"
#include "values.h"

namespace reader {

struct PaxRecord;
class TarHeader;

struct RedactionOptions {
    std::set<Kind> keep;
    bool keep_binary = false;
    bool without_sensors = false;
    bool without_times = false;
};

// Takes what identifies a device or a person out of a report and its bundle. Three times all of it
// is read, in the same way: to learn what there is, to write it anew, and, what was written, to
// see that nothing is left.
//
// Memory: the values and, where they are kept, the changes; all else is bounded, whatever is read.
// Parts that are to be packed again, or whose size comes before them, go into temporary files
// without a name.
class Redaction {
  public:
    // The values are the caller's; it may have some from an earlier time.
    Redaction(const RedactionOptions& options, Values& values);

    // Each returns "" or a sentence: it can't be read.
    std::string LearnReport(ByteSource& report);
    std::string LearnBundle(ByteSource& bundle);

    // After all was learnt. The changes are told where `changes` isn't null. A sink that fails is
    // the caller's to ask.
    std::string WriteReport(ByteSource& report, const Sink& sink, Changes* changes);
    std::string WriteBundle(ByteSource& bundle, const Sink& sink, Changes* changes);

    // Of what was written.
    struct Finding {
        std::string where;  // "line 12", "./bluetooth/x.log"
        std::string what;   // "mac 3c:28:d1:a0:b1:c2"
    };
    std::string CheckReport(ByteSource& report);
    std::string CheckBundle(ByteSource& bundle);
    const std::vector<Finding>& findings() const { return findings_; }

    // Members that can't be read, and why.
    const std::vector<std::pair<std::string, std::string>>& left_out() const { return left_out_; }
    const std::string& bundle_fault() const { return bundle_fault_; }

  private:
    enum class Phase { kLearn, kWrite, kCheck };
    struct Extra;
    struct Member;
    struct LeftOut {
        std::string why;
        uint64_t next;  // number behind it and what is in it
    };

    std::string Walk(Phase phase, ByteSource& from, Output& out, bool bundle);
    void RedactText(ByteSource& from, Output& out, bool records);
    void TakeHit(const Scanner::Hit& hit, std::string_view raw, std::string_view before,
                 Output& out);
    void LearnHit(const Scanner::Hit& hit);
    void CheckHit(const Scanner::Hit& hit, std::string_view raw, std::string_view before);
    std::string Redacted(std::string_view text);
    bool IsKept(Kind kind) const { return options_.keep.contains(kind); }

    // Each returns "" or why it can't be read.
    std::string RedactContent(ByteSource& from, Output& out);
    std::string RedactPacked(ByteSource& from, Output& out);
    std::string RedactTar(ByteSource& from, Output& out);
    bool RedactMember(ByteSource& from, Member& member, Output& out);
    void WriteMember(Member& member, Spool& body, Output& body_out, Output& out);
    std::vector<PaxRecord> RedactHeader(const Member& member, TarHeader& header);
    void WriteExtra(const Member& member, const Extra& extra, uint64_t new_size, Output& out);
    void LeaveOut(ByteSource& from, const Member& member, Output& out);
    void RedactRest(std::string head, ByteSource& from, Output& out, const std::string& fault);

    const RedactionOptions options_;
    Values& values_;
    Scanner scanner_;
    Phase phase_ = Phase::kLearn;
    std::string error_;

    std::string where_;       // the member, or "" in the report
    uint64_t line_ = 1;       // of the report
    uint64_t looked_at_ = 0;  // bytes that were judged
    uint64_t odd_ = 0;        // and those of them that no text has
    int depth_ = 0;
    uint64_t member_ = 0;  // the next one's number
    std::map<uint64_t, LeftOut> numbers_left_out_;
    std::vector<std::pair<std::string, std::string>> left_out_;
    std::string bundle_fault_;
    std::vector<Finding> findings_;
};

}  // namespace reader
