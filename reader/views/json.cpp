#include "json.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "report.h"
#include "utf8.h"
#include "verdict.h"
#include "watch.h"

namespace reader {
namespace {

constexpr size_t kFlushed = size_t{64} << 10;
// A line stays below 64 MiB, whatever has to be escaped in it: so much is for a text or for a
// sensor's records, and the rest for all else, which comes from lines of 8 KiB.
constexpr size_t kLongestText = size_t{63} << 20;
constexpr uint64_t kPiece = uint64_t{256} << 10;

// The bytes that a string can't hold as they are: controls, the quote, the backslash, and all that
// begins or is no UTF-8 character of several bytes.
constexpr std::array<bool, 256> kSpecial = [] {
    std::array<bool, 256> special{};
    for (size_t c = 0; c < special.size(); ++c) {
        special[c] = c < 0x20 || c == '"' || c == '\\' || c >= 0x80;
    }
    return special;
}();

// Writes JSON into a buffer that is handed on whenever it has filled.
class JsonWriter {
  public:
    explicit JsonWriter(const Sink& sink) : sink_(sink) { buffer_.reserve(2 * kFlushed); }

    JsonWriter& Raw(std::string_view text) {
        buffer_ += text;
        if (buffer_.size() >= kFlushed) Flush();
        return *this;
    }
    JsonWriter& Word(bool value) { return Raw(value ? "true" : "false"); }
    JsonWriter& Integer(uint64_t value) {
        std::array<char, 20> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
        return Raw({digits.data(), static_cast<size_t>(end - digits.data())});
    }
    JsonWriter& Number(double value);
    JsonWriter& String(std::string_view text) {
        Raw("\"");
        size_t room = std::string_view::npos;
        Characters(text, room);
        return Raw("\"");
    }
    // What stands between a string's quotes, as far as there is room for it, which shrinks. False
    // when not all found room.
    bool Characters(std::string_view text, size_t& room);
    JsonWriter& StringOrNull(std::string_view text) {
        return text.empty() ? Raw("null") : String(text);
    }
    // Whether a string since the last call held what is no UTF-8.
    bool TakeLossy() { return std::exchange(lossy_, false); }

    bool Flush() {
        if (good_ && !buffer_.empty()) good_ = sink_(buffer_);
        buffer_.clear();
        return good_;
    }

  private:
    const Sink& sink_;
    std::string buffer_;
    bool lossy_ = false;
    bool good_ = true;
};

// The shortest that reads as the same number; what the service prints has six decimals at most.
JsonWriter& JsonWriter::Number(double value) {
    if (!std::isfinite(value)) return Raw("null");
    constexpr double kMillion = 1e6;
    std::array<char, 400> text;
    char* const begin = text.data();
    char* end = begin;
    const double magnitude = std::fabs(value);
    const auto millionths =
            magnitude < 1e9 ? static_cast<uint64_t>(std::llround(magnitude * kMillion)) : 0;
    if (magnitude < 1e9 && static_cast<double>(millionths) / kMillion == magnitude) {
        if (value < 0) *end++ = '-';
        end = std::to_chars(end, begin + text.size(), millionths / 1'000'000).ptr;
        *end++ = '.';
        uint64_t fraction = millionths % 1'000'000;
        do {
            fraction *= 10;
            *end++ = static_cast<char>('0' + fraction / 1'000'000);
            fraction %= 1'000'000;
        } while (fraction != 0);
    } else {
        end = std::to_chars(begin, begin + text.size(), value).ptr;
    }
    return Raw({begin, static_cast<size_t>(end - begin)});
}

bool JsonWriter::Characters(std::string_view text, size_t& room) {
    constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    while (!text.empty()) {
        size_t plain = 0;
        while (plain < text.size() && !kSpecial[static_cast<unsigned char>(text[plain])]) ++plain;
        const size_t taken = std::min(plain, room);
        Raw(text.substr(0, taken));
        room -= taken;
        if (taken < plain) return false;
        text.remove_prefix(plain);
        if (text.empty()) break;
        const Utf8Step step = NextUtf8(text);
        const char c = text[0];
        std::array<char, 6> escaped = {'\\', c, '0', '0', '0', '0'};
        std::string_view written(escaped.data(), 2);
        if (!step.valid) {
            written = kReplacement;
        } else if (step.size > 1) {
            written = text.substr(0, step.size);
        } else if (c == '\n') {
            escaped[1] = 'n';
        } else if (c == '\t') {
            escaped[1] = 't';
        } else if (c != '"' && c != '\\') {
            constexpr std::string_view kDigits = "0123456789abcdef";
            escaped = {'\\',
                       'u',
                       '0',
                       '0',
                       kDigits[static_cast<size_t>(c) >> 4],
                       kDigits[static_cast<size_t>(c) & 15]};
            written = {escaped.data(), escaped.size()};
        }
        if (written.size() > room) return false;
        lossy_ = lossy_ || !step.valid;
        Raw(written);
        room -= written.size();
        text.remove_prefix(step.size);
    }
    return true;
}

class Records {
  public:
    Records(const std::string& file, const Rules& rules, const Sink& sink)
        : json_(sink), watch_(rules, report_) {
        report_.file = file;
        report_.source = std::make_shared<Source>();
    }

    std::string Write();

  private:
    void Begin(std::string_view type) {
        json_.Raw("{\"type\":\"").Raw(type).Raw("\",\"file\":").String(report_.file);
        json_.TakeLossy();
        json_.Raw(",\"key\":\"").Raw(key_).Raw("\"");
    }
    void Write(const Section& section);
    bool WriteText(TextRange text);
    void Write(const Sensor& sensor);
    void Write(const Fact& fact);
    void WriteStates(const Verdict& verdict);
    void Write(const Finding& finding);
    void WriteReport(const Verdict& verdict);

    JsonWriter json_;
    Report report_;
    std::string key_;
    Watch watch_;
};

// The text's characters, as far as there is room for them; false when there is not.
bool Records::WriteText(TextRange text) {
    size_t room = kLongestText;
    std::string bytes;  // of the piece before, a character's beginning may be left
    while (text.size() > 0) {
        const TextRange piece{text.begin, std::min(text.end, text.begin + kPiece)};
        text.begin = piece.end;
        if (!report_.source->ReadAt(piece, bytes)) return false;
        const size_t whole = text.size() > 0 ? WholeCharacters(bytes) : bytes.size();
        if (!json_.Characters(std::string_view(bytes).substr(0, whole), room)) return false;
        bytes.erase(0, whole);
    }
    return true;
}

void Records::Write(const Section& section) {
    Begin("section");
    json_.Raw(",\"index\":").Integer(section.index).Raw(",\"title\":");
    json_.String(section.title);
    json_.Raw(",\"kind\":").String(section.kind == Section::Kind::kCommand ? "command" : "file");
    json_.Raw(",\"detail\":").String(section.detail);
    json_.Raw(",\"seconds\":").Number(section.seconds);
    json_.Raw(",\"failure\":").StringOrNull(section.failure);
    json_.Raw(",\"complete\":").Word(section.complete).Raw(",\"text\":\"");
    const bool whole = WriteText(section.text);
    json_.Raw("\",\"lossy\":").Word(json_.TakeLossy());
    if (!whole) json_.Raw(",\"cut\":true");
    json_.Raw(",\"expected\":").StringOrNull(section.expected).Raw("}\n");
    json_.TakeLossy();
}

// How many of the sensor's records there is room for on a line.
size_t RecordsThatFit(const Sensor& sensor) {
    constexpr size_t kLongestRecord =
            128;  // a time of 20 digits, and three numbers of 24 characters
    const size_t count = sensor.times.size();
    if (count <= kLongestText / kLongestRecord) return count;
    size_t size = 0;
    const Sink sink = [&size](std::string_view bytes) {
        size += bytes.size();
        return true;
    };
    JsonWriter measure(sink);
    for (size_t i = 0; i < count; ++i) {
        measure.Integer(sensor.times[i]).Raw(",[],");
        for (const std::vector<double>& column : sensor.values) measure.Number(column[i]).Raw(",");
        measure.Flush();
        if (size > kLongestText) return i;
    }
    return count;
}

void Records::Write(const Sensor& sensor) {
    const size_t count = RecordsThatFit(sensor);
    Begin("sensor");
    json_.Raw(",\"sensor\":").Integer(sensor.number).Raw(",\"name\":").String(sensor.name);
    json_.Raw(",\"skipped\":").StringOrNull(sensor.skipped).Raw(",\"times\":[");
    for (size_t i = 0; i < count; ++i) json_.Raw(i == 0 ? "" : ",").Integer(sensor.times[i]);
    json_.Raw("],\"values\":[");
    for (size_t i = 0; i < count; ++i) {
        for (size_t c = 0; c < sensor.values.size(); ++c) {
            json_.Raw(c > 0 ? "," : i > 0 ? ",[" : "[").Number(sensor.values[c][i]);
        }
        json_.Raw("]");
    }
    json_.Raw(count < sensor.times.size() ? "],\"cut\":true}\n" : "]}\n");
}

void Records::Write(const Fact& fact) {
    Begin("fact");
    json_.Raw(",\"fact\":").String(fact.row->key).Raw(",\"number\":");
    json_.Raw(fact.row->number ? fact.value : "null").Raw(",\"text\":").String(fact.value);
    json_.Raw("}\n");
}

// What the sensors were like, in the words that are shown.
void Records::WriteStates(const Verdict& verdict) {
    for (size_t box = 0; box < report_.black_boxes.size(); ++box) {
        const std::vector<Sensor>& sensors = report_.black_boxes[box].sensors;
        for (size_t i = 0; i < sensors.size(); ++i) {
            Begin("state");
            json_.Raw(",\"sensor\":").Integer(sensors[i].number).Raw(",\"name\":");
            json_.String(sensors[i].name).Raw(",\"records\":");
            json_.Integer(sensors[i].statistics.records).Raw(",\"seconds\":");
            json_.Number(sensors[i].statistics.span).Raw(",\"rate\":");
            json_.Number(sensors[i].statistics.rate).Raw(",\"state\":");
            json_.StringOrNull(verdict.WordsOf({box, i})).Raw("}\n");
        }
    }
}

void Records::Write(const Finding& finding) {
    Begin("finding");
    json_.Raw(",\"check\":").String(finding.check);
    json_.Raw(",\"severity\":").String(WordOf(finding.severity));
    json_.Raw(",\"says\":").String(finding.says).Raw(",\"hint\":").StringOrNull(finding.hint);
    json_.Raw(",\"section\":").StringOrNull(finding.section).Raw(",\"index\":");
    finding.index ? json_.Integer(*finding.index) : json_.Raw("null");
    json_.Raw(",\"line\":");
    finding.line ? json_.Integer(*finding.line) : json_.Raw("null");
    json_.Raw(",\"evidence\":").StringOrNull(finding.evidence).Raw(",\"name\":");
    json_.StringOrNull(finding.sensor ? finding.subject : "").Raw("}\n");
}

void Records::WriteReport(const Verdict& verdict) {
    Begin("report");
    json_.Raw(",\"verbose\":");
    report_.verbose ? json_.Word(*report_.verbose) : json_.Raw("null");
    json_.Raw(",\"facts\":{");
    for (const Fact& fact : report_.facts) {
        json_.Raw(&fact == &report_.facts.front() ? "" : ",").String(fact.row->key).Raw(":");
        fact.row->number ? json_.Raw(fact.value) : json_.String(fact.value);
    }
    json_.Raw("},\"black_box\":").StringOrNull(verdict.black_box);
    json_.Raw(",\"sections\":").Integer(report_.tally.sections);
    json_.Raw(",\"failed\":").Integer(report_.tally.failed);
    json_.Raw(",\"complete\":").Word(verdict.complete);
    json_.Raw(",\"errors\":").Integer(verdict.Count(Severity::kError));
    json_.Raw(",\"warnings\":").Integer(verdict.Count(Severity::kWarning)).Raw("}\n");
}

std::string Records::Write() {
    Source& source = *report_.source;
    if (std::string sentence = source.Open(report_.file, false); !sentence.empty()) {
        return sentence;
    }
    key_ = source.TakeKey();
    if (key_.empty()) return source.error();
    ReportBuilder builder(report_, ReportBuilder::Keep::kWhatIsJudged);
    ReportParser::Listener listener = builder.Listener();
    listener.on_section = [this, &builder](Section&& section) {
        section.index = report_.tally.sections;
        watch_.Take(section);
        Write(section);
        builder.Add(std::move(section));
    };
    listener.on_black_box = [this, &builder](BlackBox&& black_box) {
        for (const Sensor& sensor : black_box.sensors) Write(sensor);
        builder.Add(std::move(black_box));
    };
    ReportParser parser(std::move(listener));
    for (std::string_view bytes; !(bytes = source.Read()).empty();) {
        parser.Feed(bytes);
        if (!json_.Flush()) return "";
        if (!source.Keep(parser.NeededFrom())) break;
    }
    parser.Finish();
    builder.Finish(parser);
    std::string sentence = source.error();
    if (sentence.empty()) sentence = WhyNoReport(report_, source.name());
    if (sentence.empty()) {
        const Verdict verdict = Judge(report_, watch_);
        for (const Fact& fact : report_.facts) Write(fact);
        WriteStates(verdict);
        for (const Finding& finding : verdict.findings) Write(finding);
        WriteReport(verdict);
    }
    json_.Flush();
    return sentence;
}

}  // namespace

std::string WriteJson(const std::string& file, const Rules& rules, const Sink& sink) {
    return Records(file, rules, sink).Write();
}

}  // namespace reader
