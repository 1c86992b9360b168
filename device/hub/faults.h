#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// How the hub misbehaves, for whoever wants to see what its clients make of it.

// What arrives and what is sent, as far as one may want to wait for it.
enum class Message : size_t {
    kListRequest,
    kCountRequest,
    kSnapshotRequest,
    kFragmentRequest,
    kListResponse,
    kCountReply,
    kSnapshotReply,
    kFragmentData,
    kFragmentDone,
    kReceived,  // any datagram
    kSent,      // any message
};
inline constexpr std::array<std::string_view, 11> kMessageNames = {
        "list-request", "count-request",  "snapshot-request", "fragment-request", "list-response",
        "count-reply",  "snapshot-reply", "fragment-data",    "fragment-done",    "received",
        "sent",
};

// One piece of a sensor's data on its way out.
struct DataPiece {
    uint8_t cookie;
    std::span<const uint8_t> data;
    int copies = 1;
};

struct PieceFault {
    const char* option;
    const char* help;
    void (*distort)(DataPiece& piece);
};
inline constexpr std::array<PieceFault, 4> kPieceFaults = {{
        {"lose", "is never sent", [](DataPiece& piece) { piece.copies = 0; }},
        {"duplicate", "is sent twice", [](DataPiece& piece) { piece.copies = 2; }},
        {"wrong-cookie", "carries another snapshot's cookie",
         [](DataPiece& piece) { piece.cookie ^= 0xFF; }},
        {"truncate", "holds half of the data it announces",
         [](DataPiece& piece) { piece.data = piece.data.first(piece.data.size() / 2); }},
}};

// The Nth of its kind on a connection, from 1.
struct Moment {
    Message message;
    uint32_t nth;

    // Reads "NAME" or "NAME:N"; nothing for anything else.
    static std::optional<Moment> Parse(std::string_view text);
};

struct FaultPlan {
    bool absent = false;      // the black box isn't listed, nor reached
    bool disabled = false;    // it is listed as disabled, and not reached
    bool no_sensors = false;  // it has nothing to tell
    // By rows of kPieceFaults: every Nth piece has it, 0 is none.
    std::array<uint32_t, kPieceFaults.size()> pieces{};
    uint32_t delay_ms = 0;  // before every message sent
    std::optional<Moment> hang_at;
    std::optional<Moment> hang_up_at;
};

// Counts what happens on one connection, and tells what shall go wrong. The plan outlives it.
class Faults {
  public:
    enum class Action { kNone, kHang, kHangUp };

    explicit Faults(const FaultPlan& plan) : plan_(plan) {}

    const FaultPlan& plan() const { return plan_; }

    // To be asked once for each message, before it is handled or sent.
    Action Meet(Message message);
    // To be asked once for each piece.
    void Distort(DataPiece& piece);

  private:
    const FaultPlan& plan_;
    std::array<uint32_t, kMessageNames.size()> met_{};
    uint32_t pieces_ = 0;
};
