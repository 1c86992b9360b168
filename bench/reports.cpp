#include "reports.h"

#include <cstdio>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr char kFolder[] = "/dev/shm/bench.reports";
constexpr char kFooter[] = "------ 0.010s was the duration of 'LOG' ------\n";
constexpr size_t kBytesARecord = 16;

void AddRecords(std::FILE* file, size_t count) {
    std::fputs("------ Sensor Black Box ------\n*** Sensor 1 (Accelerometer) ***\n", file);
    for (size_t i = 0; i < count; ++i) {
        std::fprintf(file, "Time: %zu, Value: (%.3f, %.3f, %.3f)\n",
                     1'000'000'000 + i * 10'000'000 + i * 7919 % 1000 * 1000,
                     static_cast<double>(i % 97) / 10, -9.8, static_cast<double>(i % 31) / 10);
    }
}

Reports::Made MakeReport(const Shape& shape) {
    Reports::Made made{Reports::PathOf(std::string(shape.name) + ".txt")};
    fs::create_directories(kFolder);
    std::FILE* const file = std::fopen(made.path.c_str(), "w");
    std::fputs("verbose logging: disabled\n", file);
    AddRecords(file, shape.records);
    const auto begin = static_cast<size_t>(std::ftell(file));
    const size_t left = shape.size > begin ? shape.size - begin : 0;
    for (size_t i = 0; i < shape.sections; ++i) {
        std::fprintf(file, "------ LOG (/data/log/%zu) ------\n", i);
        for (size_t size = 0; size <= left / shape.sections;) {
            size += static_cast<size_t>(std::fprintf(
                    file, "%08zu one of the many <lines> of a log, & no more\n", size));
        }
        std::fputs(kFooter, file);
    }
    made.shown = static_cast<size_t>(std::ftell(file)) - begin + shape.records * kBytesARecord;
    std::fclose(file);
    return made;
}

}  // namespace

Reports::~Reports() {
    fs::remove_all(kFolder);
}

const Reports::Made& Reports::operator[](const Shape& shape) {
    Made& made = made_[shape.name];
    if (made.path.empty()) made = MakeReport(shape);
    return made;
}

std::string Reports::PathOf(const std::string& name) {
    return std::string(kFolder) + "/" + name;
}
