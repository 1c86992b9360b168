// All that the context hub may send, from the datagram's bytes to the printed report. An input is a
// sequence of records, each a kind, a size (little-endian, 16 bits) and that many bytes:
//
//   0      a datagram as it stands
//   1      a list of nanoapps: for each, bit 0 of a byte makes it the black box, bit 1 enables it
//   2      the report is printed in between
//   others a message of the black box of type kind - 2, with the bytes as its payload

#include <android/log.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "host_protocol_common.h"
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

namespace {

namespace fbs = chre::fbs;
using android::chre::HostProtocolHost;
using tev::dumpstate::SensorBlackBoxClient;

constexpr uint64_t kBlackBox = 0x4E6F727665001025;
constexpr uint16_t kEveryHostEndpoint = 0xFFFF;

enum Kind : uint8_t { kDatagram, kNanoappList, kPrint };

void Receive(SensorBlackBoxClient& client, const uint8_t* data, size_t size) {
    // A copy of its own: reading past it shows, and it is aligned as the receive buffer is.
    const std::vector<uint8_t> datagram(data, data + size);
    client.onMessageReceived(datagram.data(), static_cast<uint32_t>(datagram.size()));
}

void ReceiveNanoappList(SensorBlackBoxClient& client, std::span<const uint8_t> nanoapps) {
    flatbuffers::FlatBufferBuilder builder;
    std::vector<flatbuffers::Offset<fbs::NanoappListEntry>> entries;
    for (const uint8_t nanoapp : nanoapps) {
        const uint64_t id = (nanoapp & 1) != 0 ? kBlackBox : nanoapp;
        entries.push_back(fbs::CreateNanoappListEntry(builder, id, 1, (nanoapp & 2) != 0));
    }
    const auto list = fbs::CreateNanoappListResponse(builder, builder.CreateVector(entries));
    chre::HostProtocolCommon::finalize(builder, fbs::ChreMessage::NanoappListResponse, list.Union(),
                                       0);
    Receive(client, builder.GetBufferPointer(), builder.GetSize());
}

void ReceiveNanoappMessage(SensorBlackBoxClient& client, uint32_t type,
                           std::span<const uint8_t> payload) {
    flatbuffers::FlatBufferBuilder builder;
    chre::HostProtocolCommon::encodeNanoappMessage(builder, kBlackBox, type, kEveryHostEndpoint,
                                                   payload.data(), payload.size(), 0, 0, false,
                                                   false, 0);
    Receive(client, builder.GetBufferPointer(), builder.GetSize());
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
                Receive(*client, bytes.data(), bytes.size());
                break;
            case kNanoappList:
                ReceiveNanoappList(*client, bytes);
                break;
            case kPrint:
                Print(*client);
                break;
            default:
                ReceiveNanoappMessage(*client, uint32_t{kind} - kPrint, bytes);
        }
    }
    Print(*client);
    return 0;
}
