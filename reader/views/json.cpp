#include "json.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <utility>

#include "report.h"
#include "utf8.h"

namespace reader {
namespace {

constexpr size_t kFlushed = size_t{64} << 10;
constexpr size_t kLongestText = size_t{64} << 20;
// What of a section is kept besides its text.
constexpr size_t kRoom = size_t{16} << 10;

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
    JsonWriter& String(std::string_view text);
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
    const auto millionths = magnitude < 1e9 ? static_cast<uint64_t>(magnitude * kMillion + 0.5) : 0;
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

JsonWriter& JsonWriter::String(std::string_view text) {
    constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    Raw("\"");
    while (!text.empty()) {
        size_t plain = 0;
        while (plain < text.size() && !kSpecial[static_cast<unsigned char>(text[plain])]) ++plain;
        Raw(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) break;
        const Utf8Step step = NextUtf8(text);
        const char c = text[0];
        if (!step.valid) {
            lossy_ = true;
            Raw(kReplacement);
        } else if (step.size > 1) {
            Raw(text.substr(0, step.size));
        } else if (c == '\n') {
            Raw("\\n");
        } else if (c == '\t') {
            Raw("\\t");
        } else if (c == '"' || c == '\\') {
            Raw({std::array{'\\', c}.data(), 2});
        } else {
            constexpr std::string_view kDigits = "0123456789abcdef";
            Raw("\\u00").Raw(kDigits.substr(static_cast<size_t>(c) >> 4, 1));
            Raw(kDigits.substr(static_cast<size_t>(c) & 15, 1));
        }
        text.remove_prefix(step.size);
    }
    return Raw("\"");
}

// The bytes that sections which are still to be told may be made of: those that are being fed, and
// what was kept of earlier ones.
class Window {
  public:
    void Begin(std::string_view fed, uint64_t offset) {
        fed_ = fed;
        fed_begin_ = offset;
    }
    // Nothing before `needed` is asked for again.
    void End(uint64_t needed) {
        if (needed >= fed_begin_) {
            kept_.clear();
            kept_begin_ = needed;
        }
        Keep(fed_begin_ + fed_.size());
        Begin({}, fed_begin_ + fed_.size());
    }
    // As much of the range as was kept.
    std::string_view Text(TextRange range) {
        if (range.begin >= fed_begin_) {
            return fed_.substr(static_cast<size_t>(range.begin - fed_begin_),
                               static_cast<size_t>(range.size()));
        }
        Keep(range.end);
        if (range.begin >= kept_begin_ + kept_.size()) return {};
        return std::string_view(kept_).substr(static_cast<size_t>(range.begin - kept_begin_),
                                              static_cast<size_t>(range.size()));
    }

  private:
    void Keep(uint64_t end) {
        constexpr size_t kSmall = size_t{1} << 20;
        const uint64_t from = kept_begin_ + kept_.size();
        if (from < fed_begin_ || from >= end || kept_.size() == kLongestText + kRoom) return;
        // At once, as growing by steps would need more than twice the room.
        if (kept_.size() > kSmall) kept_.reserve(kLongestText + kRoom);
        const size_t room = kLongestText + kRoom - kept_.size();
        const std::string_view bytes = fed_.substr(static_cast<size_t>(from - fed_begin_),
                                                   static_cast<size_t>(end - from));
        kept_ += bytes.substr(0, room);
    }

    std::string kept_;
    uint64_t kept_begin_ = 0;
    std::string_view fed_;
    uint64_t fed_begin_ = 0;
};

// The longest beginning of the text that is to be shown, which is not to break a character.
std::string_view Cut(std::string_view text) {
    size_t end = kLongestText;
    if (text.size() <= end) return text;
    while (end > kLongestText - 4 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

class Records {
  public:
    Records(const std::string& file, const Sink& sink) : json_(sink) {
        report_.file = file;
        report_.source = std::make_shared<Source>();
    }

    std::string Write();

  private:
    void Begin(std::string_view type) {
        json_.Raw("{\"type\":\"").Raw(type).Raw("\",\"file\":").String(report_.file);
        json_.TakeLossy();
    }
    void Write(const Section& section);
    void Write(const Sensor& sensor);
    void WriteReport();

    JsonWriter json_;
    Report report_;
    Window window_;
    size_t index_ = 0;
};

void Records::Write(const Section& section) {
    const std::string_view kept = window_.Text(section.text);
    const std::string_view text = Cut(kept);
    Begin("section");
    json_.Raw(",\"index\":").Integer(index_++).Raw(",\"title\":").String(section.title);
    json_.Raw(",\"kind\":").String(section.kind == Section::Kind::kCommand ? "command" : "file");
    json_.Raw(",\"detail\":").String(section.detail);
    json_.Raw(",\"seconds\":").Number(section.seconds);
    json_.Raw(",\"failure\":").StringOrNull(section.failure);
    json_.Raw(",\"complete\":").Word(section.complete);
    json_.Raw(",\"text\":").String(text).Raw(",\"lossy\":").Word(json_.TakeLossy());
    json_.Raw(text.size() < section.text.size() ? ",\"cut\":true}\n" : "}\n");
}

void Records::Write(const Sensor& sensor) {
    Begin("sensor");
    json_.Raw(",\"sensor\":").Integer(sensor.number).Raw(",\"name\":").String(sensor.name);
    json_.Raw(",\"skipped\":").StringOrNull(sensor.skipped).Raw(",\"times\":[");
    for (size_t i = 0; i < sensor.times.size(); ++i) {
        json_.Raw(i == 0 ? "" : ",").Integer(sensor.times[i]);
    }
    json_.Raw("],\"values\":[");
    for (size_t i = 0; i < sensor.times.size(); ++i) {
        for (size_t c = 0; c < sensor.values.size(); ++c) {
            json_.Raw(c > 0 ? "," : i > 0 ? ",[" : "[").Number(sensor.values[c][i]);
        }
        json_.Raw("]");
    }
    json_.Raw("]}\n");
}

void Records::WriteReport() {
    Begin("report");
    json_.Raw(",\"verbose\":").Word(report_.verbose).Raw(",\"facts\":{");
    for (const Fact& fact : report_.facts) {
        json_.Raw(&fact == &report_.facts.front() ? "" : ",").String(fact.row->key).Raw(":");
        fact.row->number ? json_.Raw(fact.value) : json_.String(fact.value);
    }
    json_.Raw("},\"black_box\":").StringOrNull(report_.BlackBoxTrouble());
    json_.Raw(",\"sections\":").Integer(report_.sections.size());
    json_.Raw(",\"failed\":").Integer(report_.failed());
    json_.Raw(",\"complete\":").Word(report_.complete()).Raw("}\n");
}

std::string Records::Write() {
    Source& source = *report_.source;
    if (std::string sentence = source.Open(report_.file, false); !sentence.empty()) {
        return sentence;
    }
    ReportBuilder builder(report_);
    ReportParser::Listener listener = builder.Listener();
    listener.on_section = [this, &builder](Section&& section) {
        Write(section);
        builder.Add(std::move(section));
    };
    listener.on_black_box = [this, &builder](BlackBox&& black_box) {
        for (Sensor& sensor : black_box.sensors) {
            Write(sensor);
            // Its records were only wanted here.
            sensor.times = {};
            sensor.values = {};
        }
        builder.Add(std::move(black_box));
    };
    listener.on_outside = {};
    ReportParser parser(std::move(listener));
    for (std::string_view bytes; !(bytes = source.Read()).empty();) {
        window_.Begin(bytes, parser.size());
        parser.Feed(bytes);
        window_.End(parser.NeededFrom());
        if (!json_.Flush()) return "";
    }
    parser.Finish();
    builder.Finish(parser);
    std::string sentence = source.error();
    if (sentence.empty()) sentence = builder.WhyNoReport(source.name());
    if (sentence.empty()) WriteReport();
    json_.Flush();
    return sentence;
}

}  // namespace

std::string WriteJson(const std::string& file, const Sink& sink) {
    return Records(file, sink).Write();
}

}  // namespace reader
