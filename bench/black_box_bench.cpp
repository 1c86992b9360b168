// What the sensor black box costs: taking a snapshot, and printing it beside fprintf of the same
// lines.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "record_text.h"
#include "report_writer.h"
#include "sensor_black_box_buffer.h"
#include "sensor_black_box_client.h"
#include "sensor_types.h"

namespace {

using tev::dumpstate::FindSensorType;
using tev::dumpstate::ReportWriter;
using tev::dumpstate::SensorBlackBoxBuffer;
using tev::dumpstate::SensorBlackBoxClient;

constexpr uint64_t kNanoapp = 1;
constexpr uint64_t kNewest = 1794211200000000000;
constexpr size_t kRecordBytes = 16;
constexpr size_t kPieceBytes = 4096;

void PutU32(std::vector<uint8_t>& bytes, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

// Accelerometer records: a device that is moved about, 50 times a second.
std::vector<uint8_t> Records(int64_t count) {
    std::mt19937 random(1);
    std::normal_distribution<float> axis(0, 9.81F);
    std::vector<uint8_t> records;
    records.reserve(static_cast<size_t>(count) * kRecordBytes);
    for (int64_t i = 0; i < count; ++i) {
        PutU32(records, 20000);
        for (int v = 0; v < 3; ++v) PutU32(records, std::bit_cast<uint32_t>(axis(random)));
    }
    return records;
}

// The order in which pieces come.
std::vector<size_t> Offsets(size_t size, bool shuffled) {
    std::vector<size_t> offsets;
    for (size_t at = 0; at < size; at += kPieceBytes) offsets.push_back(at);
    if (shuffled) std::ranges::shuffle(offsets, std::mt19937(2));
    return offsets;
}

std::vector<chre::fbs::NanoappMessageT> Pieces(const std::vector<uint8_t>& data, bool shuffled) {
    std::vector<chre::fbs::NanoappMessageT> pieces;
    for (const size_t offset : Offsets(data.size(), shuffled)) {
        const auto some =
                std::span(data).subspan(offset, std::min(kPieceBytes, data.size() - offset));
        chre::fbs::NanoappMessageT& piece = pieces.emplace_back();
        piece.app_id = kNanoapp;
        piece.message_type = 5;
        piece.host_endpoint = 0x9023;
        piece.message = {1, 0};
        PutU32(piece.message, static_cast<uint32_t>(data.size()));
        PutU32(piece.message, static_cast<uint32_t>(offset));
        PutU32(piece.message, static_cast<uint32_t>(some.size()));
        piece.message.insert(piece.message.end(), some.begin(), some.end());
    }
    return pieces;
}

void BM_AcceptPieces(benchmark::State& state) {
    const auto data = Records(state.range(0));
    const auto pieces = Pieces(data, state.range(1) != 0);
    for (auto _ : state) {
        const android::sp<SensorBlackBoxClient> client(new SensorBlackBoxClient(kNanoapp));
        for (const auto& piece : pieces) client->handleNanoappMessage(piece);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(data.size()));
}
BENCHMARK(BM_AcceptPieces)
        ->ArgNames({"records", "shuffled"})
        ->ArgsProduct({{10000, 1000000}, {0, 1}})
        ->Unit(benchmark::kMillisecond);

// Where the report goes: a file in memory, since a disk's write-back would be all that is measured.
class OutputFile {
  public:
    ~OutputFile() { unlink(path_.c_str()); }
    FILE* get() const { return file_.get(); }
    int fd() const { return fileno(file_.get()); }

  private:
    struct Close {
        void operator()(FILE* file) const { std::fclose(file); }
    };
    std::string path_ = "/dev/shm/bench.XXXXXX";
    const std::unique_ptr<FILE, Close> file_{fdopen(mkostemp(path_.data(), O_CLOEXEC), "w")};
};

void BM_PrintRecords(benchmark::State& state) {
    const auto data = Records(state.range(0));
    SensorBlackBoxBuffer buffer(1, static_cast<uint32_t>(data.size()));
    buffer.AddBytes(0, data.data(), static_cast<uint32_t>(data.size()));
    const OutputFile out;
    const auto print = [&] {
        ReportWriter report(out.fd());
        WriteRecords(report, *FindSensorType(1), buffer, kNewest);
        report.Flush();
        lseek(out.fd(), 0, SEEK_SET);
    };
    print();  // the file gets its memory
    for (auto _ : state) print();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_PrintRecords)
        ->ArgName("records")
        ->RangeMultiplier(10)
        ->Range(1000, 1000000)
        ->Unit(benchmark::kMillisecond);

struct Record {
    uint32_t delta;
    float x;
    float y;
    float z;
};

template <typename Print>
void ForEachRecord(const std::vector<Record>& records, Print print) {
    uint64_t time = kNewest;
    for (const Record& record : records) time -= uint64_t{record.delta} * 1000;
    for (const Record& record : records) {
        time += uint64_t{record.delta} * 1000;
        print("Time: %llu, Value: (%.6f, %.6f, %.6f)\n", static_cast<unsigned long long>(time),
              double{record.x}, double{record.y}, double{record.z});
    }
}

std::vector<Record> Parsed(int64_t count) {
    const auto data = Records(count);
    std::vector<Record> records(static_cast<size_t>(count));
    std::memcpy(records.data(), data.data(), data.size());  // on a little-endian machine
    return records;
}

void BM_Fprintf(benchmark::State& state) {
    const auto records = Parsed(state.range(0));
    const OutputFile out;
    std::setvbuf(out.get(), nullptr, _IOFBF, size_t{64} * 1024);  // the report writer's
    const auto print = [&] {
        ForEachRecord(records, [&](const char* format, auto... values) {
            std::fprintf(out.get(), format, values...);
        });
        std::fflush(out.get());
        std::rewind(out.get());
    };
    print();  // the file gets its memory
    for (auto _ : state) print();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Fprintf)
        ->ArgName("records")
        ->RangeMultiplier(10)
        ->Range(1000, 1000000)
        ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
