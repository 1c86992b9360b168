#include "hub_messages.h"

namespace fbs = chre::fbs;

Bytes FromHex(std::string digits) {
    std::erase(digits, ' ');
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

Bytes Le(uint64_t value, size_t width) {
    Bytes bytes;
    for (size_t i = 0; i < width; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes Message(uint32_t type, const Bytes& payload, uint16_t endpoint, uint64_t nanoapp) {
    fbs::NanoappMessageT message;
    message.app_id = nanoapp;
    message.message_type = type;
    message.host_endpoint = endpoint;
    message.message = payload;
    return Datagram(std::move(message));
}

Bytes List(const std::vector<std::pair<uint64_t, bool>>& nanoapps) {
    fbs::NanoappListResponseT list;
    for (const auto& [id, enabled] : nanoapps) {
        list.nanoapps.push_back(std::make_unique<fbs::NanoappListEntryT>());
        list.nanoapps.back()->app_id = id;
        list.nanoapps.back()->enabled = enabled;
    }
    return Datagram(std::move(list));
}

Bytes SnapshotReply(uint32_t fragments, uint8_t cookie,
                    const std::vector<std::pair<uint8_t, uint64_t>>& timestamps) {
    Bytes payload = Le(fragments) + Bytes{cookie};
    for (const auto& [type, nanos] : timestamps) payload = payload + Bytes{type} + Le(nanos, 8);
    return Message(2, payload);
}

Bytes Piece(uint8_t sensor, uint8_t cookie, uint32_t total, uint32_t offset, uint32_t length,
            const Bytes& data) {
    return Bytes{sensor, cookie} + Le(total) + Le(offset) + Le(length) + data;
}
