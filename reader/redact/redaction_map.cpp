#include "redaction_map.h"

#include <exception>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "json_fault.h"

namespace reader {
namespace {

using nlohmann::json;

constexpr int kVersion = 1;

std::string ToText(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte >= 0x80) text += static_cast<char>(0xc0 | byte >> 6);
        text += static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3f));
    }
    return text;
}

std::string ToBytes(const std::string& text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x80) {
            bytes += text[i];
        } else if (c <= 0xc3 && i + 1 < text.size()) {
            bytes += static_cast<char>((c & 3) << 6 |
                                       (static_cast<unsigned char>(text[++i]) & 0x3f));
        } else {
            throw std::runtime_error("a character that stands for no byte");
        }
    }
    return bytes;
}

Changes ParseFile(const json& file) {
    Changes changes;
    changes.size = file.at("size").get<uint64_t>();
    changes.complete = file.at("complete").get<bool>();
    for (const json& spelling : file.at("spellings")) {
        changes.spellings.emplace_back(ToBytes(spelling.at(0).get<std::string>()),
                                       ToBytes(spelling.at(1).get<std::string>()));
    }
    const json& places = file.at("places");
    uint64_t at = 0;
    for (size_t i = 0; i + 1 < places.size(); i += 2) {
        at += places[i].get<uint64_t>();
        const auto spelling = places[i + 1].get<uint32_t>();
        if (spelling >= changes.spellings.size())
            throw std::runtime_error("a place without its spelling");
        changes.places.push_back({at, spelling});
        at += changes.spellings[spelling].first.size();
    }
    return changes;
}

std::string FormatFile(const Changes& changes) {
    json spellings = json::array();
    for (const auto& [written, original] : changes.spellings) {
        spellings.push_back({ToText(written), ToText(original)});
    }
    std::string places;
    uint64_t at = 0;
    for (const Changes::Place& place : changes.places) {
        places += (places.empty() ? "" : ",") + std::to_string(place.at - at) + "," +
                  std::to_string(place.spelling);
        at = place.at + changes.spellings[place.spelling].first.size();
    }
    return "{\"size\":" + std::to_string(changes.size) +
           ",\"complete\":" + (changes.complete ? "true" : "false") +
           ",\"spellings\":" + spellings.dump() + ",\"places\":[" + places + "]}";
}

}  // namespace

std::string ParseRedactionMap(std::string_view text, Values& values, std::vector<Changes>& files) {
    try {
        const json map = json::parse(text);
        if (map.at("redaction").get<int>() != kVersion) return "it is of another version";
        for (const json& value : map.at("values")) {
            const auto kind = KindNamed(value.at("kind").get<std::string>());
            if (!kind) return "it has a kind that isn't known";
            values.Remember(*kind, ToBytes(value.at("value").get<std::string>()),
                            ToBytes(value.at("stand_in").get<std::string>()));
        }
        for (const json& file : map.at("files")) files.push_back(ParseFile(file));
    } catch (const std::exception& failure) {
        return JsonFault(failure);
    }
    return "";
}

void FormatRedactionMap(const Values& values, const std::vector<Changes>& files, const Sink& sink) {
    sink("{\"redaction\":" + std::to_string(kVersion) + ",\"values\":[");
    bool first = true;
    for (const Values::Value& value : values.all()) {
        if (value.stand_in.empty()) continue;
        const json line = {{"kind", KindName(value.kind)},
                           {"value", ToText(value.text)},
                           {"stand_in", ToText(value.stand_in)}};
        sink((first ? "\n" : ",\n") + line.dump());
        first = false;
    }
    sink("],\n\"files\":[");
    first = true;
    for (const Changes& changes : files) {
        sink((first ? "\n" : ",\n") + FormatFile(changes));
        first = false;
    }
    sink("]}\n");
}

}  // namespace reader
