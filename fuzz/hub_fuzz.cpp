// All that the context hub may send, from the datagram's bytes to the printed report. An input is a
// sequence of records, each a kind, a size (little-endian, 16 bits) and that many bytes:
//
//   0      a datagram as it stands
//   1      a list of nanoapps: for each, bit 0 of a byte makes it the black box, bit 1 enables it
//   2      the report is printed in between
//   3      a piece of a sensor's data, in numbers that are likely to fit each other: a byte each
//   for
//          which sensor, cookie, total size, offset and length, the last three being 0 to 63 or
//          among the 64 highest, and a length of 0 being that of the data; then the data
//   others a message of the black box of type kind - 3, with the bytes as its payload

#include <android/log.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_input.h"
#include "hub_messages.h"
#include "sensor_black_box_client.h"

// Records are formatted, as what they show comes from the hub, and go nowhere.
int __android_log_vprint(int /*priority*/, const char* /*tag*/, const char* format,
                         va_list arguments) {
    std::array<char, 1024> record;
    return std::vsnprintf(record.data(), record.size(), format, arguments);
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = __android_log_vprint(priority, tag, format, arguments);
    va_end(arguments);
    return result;
}

// What the hub only announces may be refused, as on a device that has no memory for it; a quarter
// of a gigabyte under the sanitizer takes a second.
extern "C" const char* __asan_default_options() {
    return "max_allocation_size_mb=32:allocator_may_return_null=1";
}

namespace {

using tev::dumpstate::SensorBlackBoxClient;

enum Kind : uint8_t { kDatagram, kNanoappList, kPrint, kPiece };

// In a buffer of its own: reading past it shows, and it is aligned as the receive buffer is.
void Receive(SensorBlackBoxClient& client, const Bytes& datagram) {
    client.onMessageReceived(datagram.data(), static_cast<uint32_t>(datagram.size()));
}

void ReceiveNanoappList(SensorBlackBoxClient& client, std::span<const uint8_t> nanoapps) {
    std::vector<std::pair<uint64_t, bool>> listed;
    for (const uint8_t one : nanoapps) {
        listed.emplace_back((one & 1) != 0 ? kBlackBox : one, (one & 2) != 0);
    }
    Receive(client, List(listed));
}

void ReceivePiece(SensorBlackBoxClient& client, FuzzInput piece) {
    constexpr uint8_t kSensors[] = {1, 6, 8, 10, 196, 200, 214, 2};
    constexpr uint32_t kFragmentData = 5;
    std::vector<uint8_t> payload{kSensors[piece.Byte() % sizeof kSensors], piece.Byte()};
    const uint8_t numbers[] = {piece.Byte(), piece.Byte(), piece.Byte()};
    const std::span<const uint8_t> data = piece.Bytes(SIZE_MAX);
    for (const uint8_t& number : numbers) {
        const bool high = number >= 0xC0;
        const bool as_is = &number == &numbers[2] && number == 0;
        payload.push_back(high    ? number
                          : as_is ? static_cast<uint8_t>(data.size())
                                  : number & 0x3F);
        payload.insert(payload.end(), 3, high ? 0xFF : 0);
    }
    payload.insert(payload.end(), data.begin(), data.end());
    Receive(client, Message(kFragmentData, payload));
}

// What is printed is whole lines of plain text, whatever the hub has sent.
void Print(SensorBlackBoxClient& client) {
    const int fd = memfd_create("report", MFD_CLOEXEC);
    client.PrintToFd(fd, std::chrono::seconds(0));
    std::string report(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    Require(pread(fd, report.data(), report.size(), 0) == static_cast<ssize_t>(report.size()),
            "the report can be read");
    close(fd);
    Require(report.starts_with("------ Sensor Black Box ------\n"), "the report has its title");
    Require(report.ends_with('\n'), "the report ends with a whole line");
    for (const char c : report) Require(c == '\n' || (c >= ' ' && c <= '~'), "the report is text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const android::sp<SensorBlackBoxClient> client(new SensorBlackBoxClient(kBlackBox));
    FuzzInput input(data, size);
    while (!input.empty()) {
        const uint8_t kind = input.Byte();
        const size_t low = input.Byte();
        const std::span<const uint8_t> bytes = input.Bytes(low | size_t{input.Byte()} << 8);
        switch (kind) {
            case kDatagram:
                Receive(*client, {bytes.begin(), bytes.end()});
                break;
            case kNanoappList:
                ReceiveNanoappList(*client, bytes);
                break;
            case kPrint:
                Print(*client);
                break;
            case kPiece:
                ReceivePiece(*client, FuzzInput(bytes.data(), bytes.size()));
                break;
            default:
                Receive(*client, Message(uint32_t{kind} - kPiece, {bytes.begin(), bytes.end()}));
        }
    }
    Print(*client);
    return 0;
}
