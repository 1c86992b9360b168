#include "redact_command.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "bytes.h"
#include "identifier.h"
#include "output_file.h"
#include "read_reports.h"
#include "redaction.h"
#include "redaction_map.h"
#include "report.h"
#include "temporary_file.h"
#include "terminal.h"
#include "utf8.h"

namespace {

using reader::Reason;

constexpr size_t kPiece = size_t{64} * 1024;
constexpr char kReport[] = "redacted.txt";
constexpr char kBundle[] = "redacted.tar";

int Fail(int status, const std::string& sentence) {
    Complain(sentence);
    return status;
}

// A file that is read several times; what can't be is kept in a temporary one.
class Input {
  public:
    Input() = default;
    ~Input() {
        if (fd_ >= 0) close(fd_);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    // Returns "" or a sentence.
    std::string Open(const std::string& path) {
        name_ = path == "-" ? "standard input" : path;
        fd_ = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                          : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
        struct stat status {};
        if (fd_ < 0 || fstat(fd_, &status) != 0) return Sentence(Reason(errno));
        if (S_ISDIR(status.st_mode)) return Sentence("it is a folder");
        const off_t begin = lseek(fd_, 0, SEEK_CUR);
        if (S_ISREG(status.st_mode) && begin >= 0) {
            begin_ = static_cast<uint64_t>(begin);
            return "";
        }
        spool_ = std::make_unique<reader::Spool>();
        std::string piece(kPiece, '\0');
        for (;;) {
            const ssize_t size = read(fd_, piece.data(), piece.size());
            if (size < 0 && errno == EINTR) continue;
            if (size < 0) return Sentence(Reason(errno));
            if (size == 0) break;
            if (!spool_->Write(std::string_view(piece).substr(0, static_cast<size_t>(size)))) {
                return spool_->error();
            }
        }
        return "";
    }

    // From the beginning, valid until the next call.
    reader::ByteSource& Bytes() {
        if (spool_) {
            spool_->Rewind();
            return *spool_;
        }
        file_ = std::make_unique<reader::FileBytes>(fd_, begin_);
        return *file_;
    }
    int fd() const { return fd_; }
    std::string Sentence(const std::string& why) const {
        return "cannot read " + name_ + ": " + why;
    }

  private:
    std::string name_;
    int fd_ = -1;
    uint64_t begin_ = 0;
    std::unique_ptr<reader::Spool> spool_;
    std::unique_ptr<reader::FileBytes> file_;
};

// What is written and read again before anybody sees it: in a file beside its place, or kept until
// then where it goes into a pipe or a device.
class Result {
  public:
    explicit Result(const std::string& name) : file_(name) {}

    const OutputFile& file() const { return file_; }
    reader::Sink Sink() {
        return [this](std::string_view bytes) {
            return file_.is_kept() ? file_.Write(bytes) : spool_.Write(bytes);
        };
    }
    // "" or a sentence.
    std::string Trouble() const {
        if (!spool_.error().empty()) return spool_.error();
        return file_.error() != 0 ? file_.Sentence() : "";
    }
    std::string Again(Input& again, reader::ByteSource*& bytes) {
        if (!file_.is_kept()) {
            spool_.Rewind();
            bytes = &spool_;
            return "";
        }
        const std::string sentence = again.Open(file_.path());
        if (sentence.empty()) bytes = &again.Bytes();
        return sentence;
    }
    bool Commit() {
        if (!file_.is_kept()) {
            spool_.Rewind();
            for (;;) {
                const std::string_view piece = spool_.Read(kPiece);
                if (piece.empty() || !file_.Write(piece)) break;
            }
        }
        return spool_.error().empty() && file_.Commit();
    }

  private:
    OutputFile file_;
    reader::Spool spool_;
};

std::string ReadAll(reader::ByteSource& bytes) {
    std::string all;
    for (;;) {
        const std::string_view piece = bytes.Read(kPiece);
        if (piece.empty()) return all;
        all += piece;
    }
}

// A name for a terminal's line.
std::string Shown(std::string_view text) {
    return reader::Printable(text);
}

class Call {
  public:
    explicit Call(const RedactCommand& command) : command_(command) {}
    int Run();
    int Undo();

  private:
    bool has_bundle() const { return !command_.bundle.empty(); }
    // Each returns an exit status.
    int OpenInputs();
    int ReadMap();
    int ReadAlso();
    int OpenOutputs();
    int Write(reader::Redaction& redaction);
    int Check(reader::Redaction& redaction);
    int Commit();
    bool WritesOver(const OutputFile& file) const;
    void PrintTable(const reader::Redaction& redaction) const;

    const RedactCommand& command_;
    reader::Values values_;
    std::vector<reader::Changes> files_;
    std::vector<std::unique_ptr<Input>> inputs_;  // but for the two
    Input report_in_;
    Input bundle_in_;
    std::unique_ptr<Result> report_;
    std::unique_ptr<Result> bundle_;
    std::unique_ptr<OutputFile> map_;
    bool undone_whole_ = true;
};

int Call::ReadMap() {
    struct stat status {};
    const std::string& path = command_.undo.empty() ? command_.map : command_.undo;
    if (command_.undo.empty() && stat(path.c_str(), &status) != 0 && errno == ENOENT) return 0;
    inputs_.push_back(std::make_unique<Input>());
    Input& input = *inputs_.back();
    if (const std::string sentence = input.Open(path); !sentence.empty()) {
        return Fail(kUnreadable, sentence);
    }
    // It holds what the outputs no longer do.
    if (fstat(input.fd(), &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & 077) != 0 &&
        fchmod(input.fd(), S_IRUSR | S_IWUSR) != 0) {
        return Fail(1, path + " can be read by others, and can't be changed: " + Reason(errno));
    }
    const std::string wrong = reader::ParseRedactionMap(ReadAll(input.Bytes()), values_, files_);
    if (wrong.empty()) return 0;
    return Fail(kUnreadable, path + " is no map of redactions: " + wrong);
}

int Call::ReadAlso() {
    for (const std::string& path : command_.also) {
        inputs_.push_back(std::make_unique<Input>());
        Input& input = *inputs_.back();
        if (const std::string sentence = input.Open(path); !sentence.empty()) {
            return Fail(kUnreadable, sentence);
        }
        const std::string all = ReadAll(input.Bytes());
        std::string_view rest = all;
        while (!rest.empty()) {
            const size_t end = std::min(rest.find('\n'), rest.size());
            std::string_view line = rest.substr(0, end);
            rest.remove_prefix(std::min(end + 1, rest.size()));
            while (line.ends_with('\r') || line.ends_with(' ')) line.remove_suffix(1);
            if (!line.empty()) values_.LearnNamed(line);
        }
    }
    return 0;
}

bool Call::WritesOver(const OutputFile& file) const {
    return std::ranges::any_of(inputs_,
                               [&](const auto& input) { return file.Replaces(input->fd()); });
}

int Call::Check(reader::Redaction& redaction) {
    Input again;
    reader::ByteSource* bytes = nullptr;
    std::string sentence = report_->Again(again, bytes);
    if (sentence.empty()) sentence = redaction.CheckReport(*bytes);
    if (sentence.empty() && bundle_) {
        Input bundle_again;
        sentence = bundle_->Again(bundle_again, bytes);
        if (sentence.empty()) sentence = redaction.CheckBundle(*bytes);
    }
    if (!sentence.empty()) return Fail(1, "what was written can't be read again: " + sentence);
    for (const reader::Redaction::Finding& finding : redaction.findings()) {
        Fail(1, "still there: " + Shown(finding.what) + " (" + Shown(finding.where) + ")");
    }
    if (redaction.findings().empty()) return 0;
    return Fail(1, "nothing was put in its place; --also names further values");
}

reader::RedactionOptions OptionsOf(const RedactCommand& command) {
    reader::RedactionOptions options;
    for (const std::string& word : command.keep) {
        if (word == "binary") {
            options.keep_binary = true;
        } else if (const auto kind = reader::KindNamed(word)) {
            options.keep.insert(*kind);
        }
    }
    options.without_sensors = std::ranges::count(command.without, "sensors") > 0;
    options.without_times = std::ranges::count(command.without, "times") > 0;
    return options;
}

int Call::Run() {
    int status = OpenInputs();
    if (status == 0) status = OpenOutputs();
    if (status != 0) return status;
    reader::Redaction redaction(OptionsOf(command_), values_);
    status = Write(redaction);
    if (status == 0) status = Check(redaction);
    if (status == 0) status = Commit();
    if (status == 0) PrintTable(redaction);
    return status;
}

int Call::OpenInputs() {
    if (command_.report == "-" && command_.bundle == "-") {
        return Fail(kBadUsage, "standard input is one file; name the other");
    }
    if (!command_.map.empty()) {
        if (const int status = ReadMap(); status != 0) return status;
    }
    if (const int status = ReadAlso(); status != 0) return status;
    std::string sentence = report_in_.Open(command_.report);
    // What is packed has nothing that could be found.
    if (sentence.empty()) {
        const std::string_view what = reader::WhatElse(report_in_.Bytes().Read(kPiece));
        if (!what.empty()) sentence = command_.report + std::string(what);
    }
    if (sentence.empty() && has_bundle()) sentence = bundle_in_.Open(command_.bundle);
    return sentence.empty() ? 0 : Fail(kUnreadable, sentence);
}

int Call::OpenOutputs() {
    report_ = std::make_unique<Result>(command_.output.empty() ? kReport : command_.output);
    if (has_bundle()) {
        bundle_ = std::make_unique<Result>(command_.bundle_output.empty() ? kBundle
                                                                          : command_.bundle_output);
    }
    if (!command_.map.empty()) map_ = std::make_unique<OutputFile>(command_.map);
    std::vector<const OutputFile*> files{&report_->file()};
    if (bundle_) files.push_back(&bundle_->file());
    if (map_) files.push_back(map_.get());
    for (auto file = files.begin(); file != files.end(); ++file) {
        const bool is_map = *file == map_.get();
        if ((*file)->Replaces(report_in_.fd()) ||
            (has_bundle() && (*file)->Replaces(bundle_in_.fd())) ||
            (!is_map && WritesOver(**file))) {
            return Fail(kBadUsage, (*file)->name() + " is read here, and can't be written as well");
        }
        if (std::any_of(files.begin(), file,
                        [&](auto* other) { return (*file)->IsSameAs(*other); })) {
            return Fail(kBadUsage, "two of the outputs are one file");
        }
    }
    for (const OutputFile* const file : files) {
        if (file->error() != 0) return Fail(1, file->Sentence());
    }
    return 0;
}

int Call::Write(reader::Redaction& redaction) {
    std::string sentence = redaction.LearnReport(report_in_.Bytes());
    if (!sentence.empty()) return Fail(kUnreadable, report_in_.Sentence(sentence));
    if (bundle_) sentence = redaction.LearnBundle(bundle_in_.Bytes());
    if (!sentence.empty()) return Fail(kUnreadable, bundle_in_.Sentence(sentence));

    const auto changes = [&]() -> reader::Changes* {
        return map_ ? &files_.emplace_back() : nullptr;
    };
    reader::Changes* its = changes();
    sentence = redaction.WriteReport(report_in_.Bytes(), report_->Sink(), its);
    undone_whole_ = its == nullptr || its->complete;
    if (sentence.empty() && bundle_) {
        its = changes();
        sentence = redaction.WriteBundle(bundle_in_.Bytes(), bundle_->Sink(), its);
        undone_whole_ = undone_whole_ && (its == nullptr || its->complete);
    }
    if (sentence.empty()) sentence = report_->Trouble();
    if (sentence.empty() && bundle_) sentence = bundle_->Trouble();
    return sentence.empty() ? 0 : Fail(1, sentence);
}

// The map first: nothing is shared that its owner can't undo.
int Call::Commit() {
    if (map_) {
        reader::FormatRedactionMap(values_, files_,
                                   [&](std::string_view bytes) { return map_->Write(bytes); });
        if (!map_->Commit()) return Fail(1, map_->Sentence());
    }
    if (!report_->Commit()) return Fail(1, report_->Trouble());
    if (bundle_ && !bundle_->Commit()) return Fail(1, bundle_->Trouble());
    return 0;
}

void Call::PrintTable(const reader::Redaction& redaction) const {
    std::FILE* const out = report_->file().is_standard_output() ||
                                           (bundle_ && bundle_->file().is_standard_output())
                                   ? stderr
                                   : stdout;
    struct Line {
        uint64_t values = 0;
        uint64_t places = 0;
    };
    std::array<Line, reader::kKinds> lines;
    for (const reader::Values::Value& value : values_.all()) {
        if (value.places == 0) continue;
        Line& line = lines[static_cast<size_t>(value.kind)];
        ++line.values;
        line.places += value.places;
    }
    std::fprintf(out, "%-10s %8s %8s\n", "kind", "values", "places");
    for (size_t kind = 0; kind < lines.size(); ++kind) {
        const std::string name(reader::KindName(static_cast<reader::Kind>(kind)));
        const bool kept = std::ranges::count(command_.keep, name) > 0;
        if (kept) {
            std::fprintf(out, "%-10s %8s %8s\n", name.c_str(), "kept", "kept");
        } else {
            std::fprintf(out, "%-10s %8llu %8llu\n", name.c_str(),
                         static_cast<unsigned long long>(lines[kind].values),
                         static_cast<unsigned long long>(lines[kind].places));
        }
    }
    for (const auto& [kind, text] : values_.refused()) {
        std::fprintf(out, "not replaced: %s \"%s\" is too short or too common\n",
                     std::string(reader::KindName(kind)).c_str(), Shown(text).c_str());
    }
    for (const auto& [name, why] : redaction.left_out()) {
        std::fprintf(out, "left out: %s: %s; --keep binary keeps it\n", Shown(name).c_str(),
                     why.c_str());
    }
    if (bundle_ && !redaction.bundle_fault().empty()) {
        std::fprintf(out, "the bundle was not whole: %s\n",
                     Shown(redaction.bundle_fault()).c_str());
    }
    if (!undone_whole_) {
        std::fputs("the map holds not all that is wanted to undo this: too much was left out\n",
                   out);
    }
    std::fputs(
            "read again: none of these values is left, nor anything that looks like one\n"
            "what no tool can know is still there: names of people and places in free text\n",
            out);
    std::fflush(out);
}

int Call::Undo() {
    if (const int status = ReadMap(); status != 0) return status;
    Input input;
    if (const std::string sentence = input.Open(command_.report); !sentence.empty()) {
        return Fail(kUnreadable, sentence);
    }
    OutputFile file(command_.output.empty() ? "-" : command_.output);
    if (file.Replaces(input.fd()) || WritesOver(file)) {
        return Fail(kBadUsage, file.name() + " is read here, and can't be written as well");
    }
    if (file.error() != 0) return Fail(1, file.Sentence());
    uint64_t size = 0;
    reader::ByteSource& counted = input.Bytes();
    for (;;) {
        const std::string_view piece = counted.Read(kPiece);
        if (piece.empty()) break;
        size += piece.size();
    }
    const reader::Sink nowhere = [](std::string_view) { return true; };
    const auto its = std::ranges::find_if(files_, [&](const reader::Changes& changes) {
        return changes.size == size && reader::Undo(input.Bytes(), changes, nowhere);
    });
    if (its == files_.end()) {
        return Fail(1, command_.report +
                               " isn't as it was written with this map: it was changed since, or "
                               "written with another");
    }
    if (!its->complete) {
        return Fail(1, "the map holds not all that was left out of " + command_.report);
    }
    reader::Undo(input.Bytes(), *its, [&](std::string_view bytes) { return file.Write(bytes); });
    return file.Commit() ? 0 : Fail(1, file.Sentence());
}

}  // namespace

RedactCommand::RedactCommand(CLI::App& app)
    : word(app.add_subcommand("redact",
                              "Write a report and its bundle anew that name no device and "
                              "no person")) {
    word->add_option("REPORT", report, "The report, or what is to be undone; - is standard input")
            ->type_name("FILE")
            ->required();
    word->add_option("-b", bundle, "The log bundle that came with it")->type_name("FILE");
    word->add_option("-o", output,
                     "The file that receives the report, redacted.txt unless said otherwise; - is "
                     "standard output")
            ->type_name("FILE");
    word->add_option("-B", bundle_output,
                     "The file that receives the bundle, redacted.tar unless said otherwise")
            ->type_name("FILE")
            ->needs(word->get_option("-b"));
    word->add_option(
                "--map", map,
                "What undoes it, and gives a value the same stand-in the next time; made where "
                "it isn't there")
            ->type_name("FILE");
    std::vector<std::string> kinds = {"binary"};
    for (size_t kind = 0; kind < reader::kKinds; ++kind) {
        kinds.emplace_back(reader::KindName(static_cast<reader::Kind>(kind)));
    }
    word->add_option("--keep", keep,
                     "A kind of values that stays, or binary: members that can't be read")
            ->type_name("KIND")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->check(CLI::IsMember(kinds));
    word->add_option("--also", also, "Further values, one a line")
            ->type_name("FILE")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    word->add_option("--without", without, "Leave out the sensors' records, or the times worn")
            ->type_name("WHAT")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->check(CLI::IsMember({"sensors", "times"}));
    CLI::Option* const undoing =
            word->add_option("--undo", undo, "Undo it by this map, into -o or standard output")
                    ->type_name("FILE");
    for (const char* const other : {"-b", "-B", "--map", "--keep", "--also", "--without"}) {
        undoing->excludes(word->get_option(other));
    }
    word->footer(
            "Exit status: 0 when what was written was read again and nothing is left, else 1; 2 "
            "for "
            "bad usage, 3 when a file can't be read.");
}

std::optional<int> RedactCommand::Run() const {
    if (!word->parsed()) return {};
    Call call(*this);
    return undo.empty() ? call.Run() : call.Undo();
}
