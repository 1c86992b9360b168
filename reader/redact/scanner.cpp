#include "scanner.h"

#include <re2/re2.h>
#include <re2/set.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <tuple>

#include "patterns.h"

namespace reader {
namespace {

constexpr std::array<char, 256> MakeFolds() {
    std::array<char, 256> folds{};
    for (size_t i = 0; i < folds.size(); ++i) folds[i] = Lower(static_cast<char>(i));
    return folds;
}
enum class Class : unsigned char { kOther, kSeparator, kAlnum };
constexpr std::array<Class, 256> MakeClasses() {
    std::array<Class, 256> classes{};
    for (size_t i = 0; i < classes.size(); ++i) {
        if (IsAlnum(static_cast<char>(i))) classes[i] = Class::kAlnum;
    }
    // What may stand between the digits of a number or an address.
    for (const char c : {'-', ':', '.', '_', ' ', '/'}) {
        classes[static_cast<unsigned char>(c)] = Class::kSeparator;
    }
    return classes;
}
constexpr std::array<char, 256> kFolds = MakeFolds();
constexpr std::array<Class, 256> kClasses = MakeClasses();

unsigned char Byte(char c) {
    return static_cast<unsigned char>(c);
}

// "Time: 2418901124400, Value: (0.1, 9.8, 0.3)" or ", Time On Wrist: 382.110016s", and what of them
// is summed up.
std::optional<Scanner::What> RecordIn(std::string_view line) {
    constexpr std::string_view kNumbers = "0123456789.,() +-einfa";
    if (line.starts_with("Total Time On Wrist: ")) return Scanner::What::kWornRecord;
    if (!line.starts_with("Time: ")) return {};
    line.remove_prefix(6);
    line.remove_prefix(std::min(line.find_first_not_of("0123456789"), line.size()));
    if (line.starts_with(", Value: ")) {
        line.remove_prefix(9);
        if (line.find_first_not_of(kNumbers) != std::string_view::npos) return {};
        return Scanner::What::kSensorRecord;
    }
    if (!line.starts_with(", Time On Wrist: ") || !line.ends_with('s')) return {};
    line = line.substr(17, line.size() - 18);
    if (line.find_first_not_of(kNumbers) != std::string_view::npos) return {};
    return Scanner::What::kWornRecord;
}

re2::RE2::Options EngineOptions() {
    re2::RE2::Options options;
    options.set_longest_match(true);
    options.set_encoding(re2::RE2::Options::EncodingLatin1);
    options.set_log_errors(false);
    constexpr int64_t kMemory = int64_t{64} << 20;
    options.set_max_mem(kMemory);
    return options;
}

constexpr char kStandInRegex[] =
        "(?:serial|imei|imsi|iccid|phone|ssid|location|account|path-user)-[0-9]+";

}  // namespace

// One expression says quickly where something may be, a set which of them begin there, and each of
// those where its values are.
struct Scanner::Engine {
    struct Expression {
        const Pattern* pattern;  // null for stand-ins
        std::unique_ptr<re2::RE2> regex;
        int groups;
    };

    Engine() {
        std::string all;
        const auto add = [&](const Pattern* pattern, const char* text) {
            all += (all.empty() ? "(?:" : "|(?:") + std::string(text) + ")";
            auto regex = std::make_unique<re2::RE2>(text, EngineOptions());
            const int groups = regex->NumberOfCapturingGroups();
            expressions.push_back({pattern, std::move(regex), groups});
            beginning.Add(text, nullptr);
        };
        for (const Pattern& pattern : Patterns()) add(&pattern, pattern.regex);
        add(nullptr, kStandInRegex);
        re2::RE2::Options options = EngineOptions();
        options.set_never_capture(true);
        any = std::make_unique<re2::RE2>(all, options);
        beginning.Compile();
    }

    std::vector<Expression> expressions;
    std::unique_ptr<re2::RE2> any;
    re2::RE2::Set beginning{EngineOptions(), re2::RE2::ANCHOR_START};
};

// All share it: it takes longer to make than a report to read.
const Scanner::Engine& Scanner::TheEngine() {
    static const Engine engine;
    return engine;
}

Scanner::Scanner(const Values& values) : values_(values), engine_(TheEngine()) {}

void Scanner::Add(Hit&& hit) {
    hits_.push_back(std::move(hit));
}

// Where to go on.
size_t Scanner::TryPatterns(const Notation& notation, size_t at) {
    constexpr size_t kMostGroups = 2;
    constexpr size_t kFarthest = 512;  // no pattern's match is longer
    const std::string_view text = notation.text();
    const re2::StringPiece piece(text.data(), text.size());
    std::array<re2::StringPiece, kMostGroups + 1> groups;
    size_t next = at;
    size_t longest = 0;
    size_t inner = text.size();
    std::vector<Hit> best;
    std::vector<int> beginning;
    engine_.beginning.Match({text.data() + at, std::min(text.size() - at, kFarthest)}, &beginning);
    for (const int number : beginning) {
        const Engine::Expression& expression = engine_.expressions[static_cast<size_t>(number)];
        if (!expression.regex->Match(piece, at, text.size(), re2::RE2::ANCHOR_START, groups.data(),
                                     expression.groups + 1)) {
            continue;
        }
        std::vector<Hit> hits;
        size_t end = 0;
        const int first = expression.groups == 0 ? 0 : 1;
        for (int group = first; group <= expression.groups; ++group) {
            const re2::StringPiece& value = groups[static_cast<size_t>(group)];
            const size_t begin = static_cast<size_t>(value.data() - text.data());
            Candidate candidate{text, at, begin, begin + value.size()};
            if (begin > at) inner = std::min(inner, begin);
            if (expression.pattern != nullptr && !expression.pattern->judge(candidate)) continue;
            Hit hit{notation.RawAt(candidate.begin), notation.RawAt(candidate.end),
                    expression.pattern == nullptr ? What::kStandIn : What::kPattern};
            if (expression.pattern != nullptr) hit.kind = expression.pattern->kind;
            hit.text = candidate.value();
            hit.notation = &notation;
            hit.first = candidate.begin;
            hit.last = candidate.end;
            end = candidate.end;
            hits.push_back(std::move(hit));
        }
        if (hits.empty() || end <= longest) continue;
        longest = end;
        best = std::move(hits);
    }
    if (!best.empty()) {
        next = longest;
        for (Hit& hit : best) Add(std::move(hit));
        return next;
    }
    if (inner > at && inner < text.size()) return inner;
    // Nothing begins within a word that hasn't begun with it.
    while (next < text.size() && kClasses[Byte(text[next])] == Class::kAlnum) ++next;
    return std::max(next, at + 1);
}

void Scanner::FindPatterns(const Notation& notation) {
    const std::string_view text = notation.text();
    const re2::StringPiece piece(text.data(), text.size());
    re2::StringPiece match;
    for (size_t at = 0; at < text.size();) {
        if (!engine_.any->Match(piece, at, text.size(), re2::RE2::UNANCHORED, &match, 1)) return;
        at = TryPatterns(notation, static_cast<size_t>(match.data() - text.data()));
    }
}

void Scanner::AddKnown(const Notation& notation, size_t begin, size_t end, uint32_t form) {
    Hit hit{notation.RawAt(begin), notation.RawAt(end), What::kKnown};
    hit.form = form;
    hit.notation = &notation;
    hit.first = begin;
    hit.last = end;
    Add(std::move(hit));
}

namespace {

// Whether nothing beside it says that it is a part of something else.
bool HasBorders(std::string_view text, size_t begin, size_t end, char separator) {
    const auto at = [text](size_t i) { return i < text.size() ? text[i] : '\n'; };
    const char before = begin > 0 ? text[begin - 1] : '\n';
    const char beyond = begin > 1 ? text[begin - 2] : '\n';
    const std::string_view value = text.substr(begin, end - begin);
    const bool number =
            std::ranges::all_of(value, [](char c) { return IsDigit(c) || !IsAlnum(c); });
    if (!number) return !IsAlnum(before) && !IsAlnum(at(end));
    if (IsDigit(before) || IsDigit(at(end))) return false;
    const auto goes_on = [separator](char beside, char next) {
        return (beside == '.' || (separator != '\0' && beside == separator)) && IsDigit(next);
    };
    return !goes_on(before, beyond) && !goes_on(at(end), at(end + 1));
}

}  // namespace

void Scanner::FindKnown(const Notation& notation) {
    const std::string_view text = notation.text();
    if (!values_.texts().empty()) {
        folded_.resize(text.size());
        std::ranges::transform(text, folded_.begin(), [](char c) { return kFolds[Byte(c)]; });
        values_.texts().Find(folded_, [&](size_t at, size_t size, uint32_t form) {
            if (values_.form(form).borders && !HasBorders(text, at, at + size, '\0')) return false;
            AddKnown(notation, at, at + size, form);
            return true;
        });
    }
    if (values_.skeletons().empty()) return;
    skeleton_.resize(text.size());
    skeleton_at_.resize(text.size());
    size_t size = 0;
    Class before = Class::kOther;
    for (size_t i = 0; i < text.size(); ++i) {
        const Class its = kClasses[Byte(text[i])];
        // One separator between two of the others is passed over, all else ends what may be a key.
        const bool passed = its == Class::kSeparator && before == Class::kAlnum;
        if (!passed) {
            skeleton_[size] = its == Class::kAlnum ? kFolds[Byte(text[i])] : '\0';
            skeleton_at_[size++] = static_cast<uint32_t>(i);
        }
        before = its;
    }
    const std::string_view skeleton(skeleton_.data(), size);
    values_.skeletons().Find(skeleton, [&](size_t at, size_t length, uint32_t form) {
        const size_t begin = skeleton_at_[at];
        const size_t end = size_t{skeleton_at_[at + length - 1]} + 1;
        char separator = '\0';
        for (size_t i = begin; i < end; ++i) {
            if (IsAlnum(text[i])) continue;
            if (separator != '\0' && separator != text[i]) return false;
            separator = text[i];
        }
        if (values_.form(form).borders && !HasBorders(text, begin, end, separator)) return false;
        AddKnown(notation, begin, end, form);
        return true;
    });
}

void Scanner::ScanNotation(const Notation& notation) {
    FindPatterns(notation);
    FindKnown(notation);
}

void Scanner::ScanSegment(std::string_view text, size_t offset) {
    notations_.emplace_back(text, offset);
    ScanNotation(notations_.back());
    const size_t before = notations_.size();
    FindEscapes(text, offset, notations_);
    for (size_t i = before; i < notations_.size(); ++i) {
        const Notation& notation = notations_[i];
        const size_t plain = hits_.size();
        ScanNotation(notation);
        // What has no escape in it or at its borders has been looked at as it stands.
        const size_t characters = notation.text().size();
        std::erase_if(hits_, [&, number = size_t{0}](const Hit& hit) mutable {
            return number++ >= plain &&
                   !notation.IsEscaped(hit.first - std::min<size_t>(hit.first, 1),
                                       std::min(hit.last + 1, characters));
        });
    }
}

const std::vector<Scanner::Hit>& Scanner::Scan(std::string_view text, bool records) {
    scanned_ = text;
    hits_.clear();
    notations_.clear();
    size_t begin = 0;
    if (records) {
        constexpr std::string_view kTime = "Time";
        for (size_t at = 0; (at = text.find(kTime, at)) != std::string_view::npos;) {
            const size_t line = text.rfind('\n', at) + 1;
            const size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
            const std::string_view whole = text.substr(line, end - line);
            const bool ends = whole.ends_with('\n');
            const auto what = RecordIn(whole.substr(0, whole.size() - (ends ? 1 : 0)));
            at = end;
            if (!what || line < begin || !ends) continue;
            if (line > begin) ScanSegment(text.substr(begin, line - begin), begin);
            const bool goes_on =
                    !hits_.empty() && hits_.back().end == line && hits_.back().what == *what;
            if (goes_on) {
                hits_.back().end = end;
            } else {
                Add({line, end, *what});
            }
            begin = end;
        }
    }
    if (begin < text.size()) ScanSegment(text.substr(begin), begin);
    if (text.find('\0') != std::string_view::npos) {
        values_.bytes().Find(text, [&](size_t at, size_t size, uint32_t form) {
            Hit hit{at, at + size, What::kKnown};
            hit.form = form;
            hit.bytes = true;
            Add(std::move(hit));
            return true;
        });
        const size_t before = notations_.size();
        FindWide(text, notations_);
        for (size_t i = before; i < notations_.size(); ++i) ScanNotation(notations_[i]);
    }
    // Of what is known, its order of bytes is known too.
    std::ranges::stable_sort(hits_, {}, [](const Hit& hit) {
        return std::tuple(hit.begin, SIZE_MAX - hit.end, hit.what != What::kKnown);
    });
    size_t end = 0;
    std::erase_if(hits_, [&end](const Hit& hit) {
        if (hit.begin < end || hit.end == hit.begin) return true;
        end = hit.end;
        return false;
    });
    return hits_;
}

std::string Scanner::Write(const Hit& hit, std::string_view stand_in) const {
    const bool known = hit.what == What::kKnown;
    const bool reversed = known && values_.form(hit.form).reversed;
    const Kind kind = known ? values_.all()[values_.form(hit.form).value].kind : hit.kind;
    std::string digits;
    if (kind == Kind::kMac) digits = Canonical(kind, stand_in);
    if (kind == Kind::kIpv6) digits = HexOfAddress(std::string(stand_in));
    if (reversed && !digits.empty()) digits = ReversedBytes(digits);
    if (hit.bytes) return BytesOf(digits);

    const Notation& notation = *hit.notation;
    const std::string_view text = notation.text().substr(hit.first, hit.last - hit.first);
    const auto raw = [&](size_t character) {
        return std::pair(notation.RawAt(hit.first + character),
                         notation.RawAt(hit.first + character + 1));
    };
    std::string written;
    if (digits.size() == static_cast<size_t>(std::ranges::count_if(text, IsAlnum))) {
        const bool upper = std::ranges::any_of(text, [](char c) { return c >= 'A' && c <= 'F'; });
        size_t next = 0;
        for (size_t i = 0; i < text.size(); ++i) {
            if (!IsAlnum(text[i])) {
                const auto [begin, end] = raw(i);
                written += scanned_.substr(begin, end - begin);
                continue;
            }
            const char c = digits[next++];
            notation.Encode(upper && IsLetter(c) ? static_cast<char>(c - ('a' - 'A')) : c, written);
        }
        return written;
    }
    for (const char c : stand_in) {
        // "@" as it was written there.
        const size_t same = IsAlnum(c) ? std::string_view::npos : text.find(c);
        if (same == std::string_view::npos) {
            notation.Encode(c, written);
        } else {
            const auto [begin, end] = raw(same);
            written += scanned_.substr(begin, end - begin);
        }
    }
    return written;
}

}  // namespace reader
