#include "recording.h"

#include <algorithm>

namespace {

// A hub has little memory for messages: a piece is far smaller than the socket's largest datagram.
constexpr uint32_t kLeastPiece = 256;
constexpr uint32_t kMostPiece = 4096;
constexpr size_t kPiecesPerFragment = 4;

// Cuts anywhere, records included, and even the smallest buffer at least once.
void Cut(uint32_t sensor, uint32_t size, std::mt19937_64& random,
         std::vector<Recording::Piece>& pieces) {
    std::uniform_int_distribution<uint32_t> lengths(kLeastPiece, kMostPiece);
    for (uint32_t offset = 0; offset < size; offset += pieces.back().length) {
        const uint32_t most = std::min(size / 2 + 1, size - offset);
        pieces.push_back({sensor, offset, std::min(lengths(random), most)});
    }
}

}  // namespace

Recording::Recording(uint32_t records, const StuckSensor& stuck)
    : random_(1), sensors_(RecordSensors(random_, records, stuck)) {
    for (uint32_t sensor = 0; sensor < sensors_.size(); ++sensor) {
        Cut(sensor, static_cast<uint32_t>(sensors_[sensor].bytes.size()), random_, pieces_);
    }
    std::ranges::shuffle(pieces_, random_);
}

uint32_t Recording::fragments() const {
    return static_cast<uint32_t>((pieces_.size() + kPiecesPerFragment - 1) / kPiecesPerFragment);
}

std::span<const Recording::Piece> Recording::fragment(uint32_t index) const {
    const size_t first = index * kPiecesPerFragment;
    return std::span(pieces_).subspan(first, std::min(kPiecesPerFragment, pieces_.size() - first));
}
