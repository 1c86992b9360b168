#include "faults.h"

#include <algorithm>
#include <charconv>

std::optional<Moment> Moment::Parse(std::string_view text) {
    const size_t colon = text.find(':');
    const auto* const name = std::ranges::find(kMessageNames, text.substr(0, colon));
    if (name == kMessageNames.end()) return std::nullopt;
    Moment moment{static_cast<Message>(name - kMessageNames.begin()), 1};
    if (colon == std::string_view::npos) return moment;
    const std::string_view number = text.substr(colon + 1);
    const char* const end = number.data() + number.size();
    const auto [rest, error] = std::from_chars(number.data(), end, moment.nth);
    if (error != std::errc() || rest != end || moment.nth == 0) return std::nullopt;
    return moment;
}

Faults::Action Faults::Meet(Message message) {
    const uint32_t count = ++met_.at(static_cast<size_t>(message));
    const auto is_now = [&](const std::optional<Moment>& moment) {
        return moment && moment->message == message && moment->nth == count;
    };
    if (is_now(plan_.hang_up_at)) return Action::kHangUp;
    return is_now(plan_.hang_at) ? Action::kHang : Action::kNone;
}

void Faults::Distort(DataPiece& piece) {
    ++pieces_;
    for (size_t row = 0; row < kPieceFaults.size(); ++row) {
        const uint32_t every = plan_.pieces[row];
        if (every != 0 && pieces_ % every == 0) kPieceFaults[row].distort(piece);
    }
}
