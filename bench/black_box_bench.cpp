// What the sensor black box costs: receiving a snapshot's datagrams, and printing its records
// beside fprintf of the same lines.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "hub_messages.h"
#include "memory_file.h"
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

constexpr uint8_t kAccelerometer = 1;
constexpr uint64_t kNewest = 1794211200000000000;

struct Record {
    uint32_t delta;
    float x;
    float y;
    float z;
};

// Of a device that is moved about, 50 times a second.
std::vector<Record> Records(int64_t count) {
    std::mt19937 random(1);
    std::normal_distribution<float> axis(0, 9.81F);
    std::vector<Record> records(static_cast<size_t>(count));
    for (Record& record : records) record = {20000, axis(random), axis(random), axis(random)};
    return records;
}

// As a sensor hub has them, on a machine that is little-endian as well.
Bytes BytesOf(const std::vector<Record>& records) {
    const auto* const begin = reinterpret_cast<const uint8_t*>(records.data());
    return {begin, begin + records.size() * sizeof(Record)};
}

std::vector<Bytes> Datagrams(const Bytes& data, bool shuffled) {
    constexpr uint32_t kPieceData = 5;
    constexpr size_t kPieceBytes = 4096;
    std::vector<Bytes> datagrams;
    for (size_t at = 0; at < data.size(); at += kPieceBytes) {
        const size_t size = std::min(kPieceBytes, data.size() - at);
        const auto begin = data.begin() + static_cast<ptrdiff_t>(at);
        const Bytes some(begin, begin + static_cast<ptrdiff_t>(size));
        datagrams.push_back(Message(
                kPieceData, Piece(kAccelerometer, 0, static_cast<uint32_t>(data.size()),
                                  static_cast<uint32_t>(at), static_cast<uint32_t>(size), some)));
    }
    if (shuffled) std::ranges::shuffle(datagrams, std::mt19937(2));
    return datagrams;
}

void BM_Receive(benchmark::State& state) {
    const auto datagrams = Datagrams(BytesOf(Records(state.range(0))), state.range(1) != 0);
    for (auto _ : state) {
        const android::sp<SensorBlackBoxClient> client(new SensorBlackBoxClient(kBlackBox));
        for (const Bytes& datagram : datagrams) {
            client->onMessageReceived(datagram.data(), static_cast<uint32_t>(datagram.size()));
        }
    }
}
BENCHMARK(BM_Receive)->ArgNames({"records", "shuffled"})->Args({10000, 0})->Args({1000000, 1});

void BM_Print(benchmark::State& state) {
    const Bytes data = BytesOf(Records(state.range(0)));
    SensorBlackBoxBuffer buffer(kAccelerometer, static_cast<uint32_t>(data.size()));
    buffer.AddBytes(0, data.data(), static_cast<uint32_t>(data.size()));
    const MemoryFile out;
    const auto print = [&] {
        ReportWriter report(out.fd());
        WriteRecords(report, *FindSensorType(kAccelerometer), buffer, kNewest);
        report.Flush();
        out.Rewind();
    };
    print();  // the file gets its memory
    for (auto _ : state) print();
}
BENCHMARK(BM_Print)->ArgName("records")->Arg(10000)->Arg(1000000);

void BM_Fprintf(benchmark::State& state) {
    const std::vector<Record> records = Records(state.range(0));
    const MemoryFile memory;
    std::FILE* const out = fdopen(dup(memory.fd()), "w");
    std::setvbuf(out, nullptr, _IOFBF, size_t{64} * 1024);  // the report writer's
    const auto print = [&] {
        uint64_t time = kNewest;
        for (const Record& record : records) time -= uint64_t{record.delta} * 1000;
        for (const Record& record : records) {
            time += uint64_t{record.delta} * 1000;
            std::fprintf(out, "Time: %llu, Value: (%.6f, %.6f, %.6f)\n",
                         static_cast<unsigned long long>(time), double{record.x}, double{record.y},
                         double{record.z});
        }
        std::rewind(out);
    };
    print();  // the file gets its memory
    for (auto _ : state) print();
    std::fclose(out);
}
BENCHMARK(BM_Fprintf)->ArgName("records")->Arg(10000);

}  // namespace
