// The host protocol's messages beside bytes that are written out here, field by field.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "host_protocol_host.h"
#include "hub_messages.h"

namespace android::chre {
namespace {

namespace fbs = ::chre::fbs;
using ::chre::HostProtocolCommon;
using flatbuffers::FlatBufferBuilder;

Bytes Finished(const FlatBufferBuilder& builder) {
    return {builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize()};
}

// Writes down which handler was called, and keeps what is listed.
class Recorder : public IChreMessageHandlers {
  public:
    void handleNanoappMessage(const fbs::NanoappMessageT&) override { called += "nanoapp message"; }
    void handleHubInfoResponse(const fbs::HubInfoResponseT&) override { called += "hub info"; }
    void handleNanoappListResponse(const fbs::NanoappListResponseT& response) override {
        called += "list";
        nanoapps.clear();
        for (const auto& nanoapp : response.nanoapps) nanoapps.push_back(*nanoapp);
    }
    void handleLoadNanoappResponse(const fbs::LoadNanoappResponseT&) override { called += "load"; }
    void handleUnloadNanoappResponse(const fbs::UnloadNanoappResponseT&) override {
        called += "unload";
    }
    void handleLogMessage13(const fbs::LogMessage13T&) override { called += "log"; }
    void handleDebugDumpResponse(const fbs::DebugDumpResponseT&) override { called += "dump"; }
    void handleSelfTestResponse(const fbs::SelfTestResponseT&) override { called += "self test"; }
    bool handleOtherMessage(const fbs::MessageContainerT& container) override {
        called += "other " + std::to_string(static_cast<int>(container.message.type)) +
                  (container.host_addr != nullptr ? "" : " without address");
        return accept_others;
    }
    void handleRawMessage(const void* data, size_t length) override {
        called += "raw";
        const auto* const bytes = static_cast<const uint8_t*>(data);
        raw.assign(bytes, bytes + length);
    }

    std::string Decode(const Bytes& buffer) {
        called.clear();
        decoded = HostProtocolHost::decodeMessageFromChre(buffer.data(), buffer.size(), *this);
        return called;
    }

    std::string called;
    bool decoded = false;
    bool accept_others = false;
    std::vector<fbs::NanoappListEntryT> nanoapps;
    Bytes raw;
};

const Bytes kListRequest = FromHex(
        "10000000 0000"                     // root table at 16, padding
        "0a00 1000 0700 0800 0e00"          // its fields: union type, union, host address
        "0a000000 000000 04 0c000000 0000"  // table at 16: union number 4, its table 12 further on
        "0000"                              // host client 0
        "0400 0400 04000000");              // the request has no fields
constexpr size_t kUnionNumber = 23;

TEST(HostProtocol, EncodesTheDaemonsBytes) {
    FlatBufferBuilder request(64);
    HostProtocolHost::encodeNanoappListRequest(request);
    EXPECT_EQ(Finished(request), kListRequest);

    const uint8_t payload[] = {0xaa, 0xbb, 0xcc};
    FlatBufferBuilder full(64);
    HostProtocolCommon::encodeNanoappMessage(full, 0x1122334455667788, 0x99aabbcc, 0x9023, payload,
                                             sizeof payload, 0x01020304, 0x05060708, true, false,
                                             0x0a0b0c0d);
    EXPECT_EQ(Finished(full), FromHex("10000000 0000 0a00 0e00 0700 0800 0c00"
                                      "0a000000 000000 01 1c000000 0000"  // union number 1
                                      "1600 2400 1c00 0800 0600 0c00 1000 1400 0500 0000 1800"
                                      "16000000"
                                      "00 01 2390 ccbbaa99"  // flags 7 and 6, endpoint, type
                                      "18000000"             // payload 24 further on
                                      "08070605 04030201"    // the second word, then the first
                                      "0d0c0b0a 8877665544332211"
                                      "03000000 aabbcc 00"));
}

TEST(HostProtocol, DecodesWhatTheDaemonWrites) {
    Recorder recorder;
    FlatBufferBuilder empty(64);
    HostProtocolCommon::encodeNanoappMessage(empty, 0, 0, 0, nullptr, 0, 0, 0, false, false, 0);
    EXPECT_EQ(recorder.Decode(Finished(empty)), "nanoapp message");
    EXPECT_TRUE(recorder.decoded);

    // Two entries: one disabled in version 7, one that leaves everything at its default.
    const std::string container =
            "14000000 00000000 0000 0a00 0e00 0700 0800 0c00"
            "0a000000 000000 05 0c000000 3412 0600 0800 0400 06000000";
    ASSERT_EQ(recorder.Decode(FromHex(container +
                                      "04000000 02000000 24000000 08000000"
                                      "0400 0400 04000000 00000000 0000 0e00 1800 1000 0800 0600"
                                      "0700 0c00 0e000000 00000001"
                                      "07000000 09000000 8877665544332211")),
              "list");
    ASSERT_EQ(recorder.nanoapps.size(), 2);
    EXPECT_EQ(recorder.nanoapps[0].app_id, 0x1122334455667788);
    EXPECT_EQ(recorder.nanoapps[0].version, 7);
    EXPECT_FALSE(recorder.nanoapps[0].enabled);
    EXPECT_TRUE(recorder.nanoapps[0].flag);
    EXPECT_EQ(recorder.nanoapps[0].word, 9);
    EXPECT_EQ(recorder.nanoapps[1].app_id, 0);
    EXPECT_TRUE(recorder.nanoapps[1].enabled);
    EXPECT_FALSE(recorder.nanoapps[1].flag);

    Bytes no_list = kListRequest;
    no_list[kUnionNumber] = 5;
    EXPECT_EQ(recorder.Decode(no_list), "list");
    EXPECT_TRUE(recorder.decoded && recorder.nanoapps.empty());
}

TEST(HostProtocol, EveryUnionNumberHasItsHandler) {
    const std::map<int, std::string> handlers = {
            {3, "hub info"}, {5, "list"},       {7, "load"}, {9, "unload"}, {13, "log"},
            {14, "dump"},    {21, "self test"}, {34, "raw"}, {35, "raw"},   {49, "raw"}};
    Recorder recorder;
    IChreMessageHandlers defaults;
    for (int number = 0; number <= 255; ++number) {
        if (number == 1) continue;  // needs its payload, see above
        Bytes buffer = kListRequest;
        buffer[kUnionNumber] = static_cast<uint8_t>(number);
        const auto known = handlers.find(number);
        const bool other = known == handlers.end();
        for (const bool accept : {false, true}) {
            recorder.accept_others = accept;
            EXPECT_EQ(recorder.Decode(buffer),
                      other ? "other " + std::to_string(number) : known->second);
            EXPECT_EQ(recorder.decoded, !other || accept) << number;
        }
        EXPECT_EQ(recorder.raw, recorder.called == "raw" ? buffer : Bytes());
        recorder.raw.clear();
        EXPECT_EQ(HostProtocolHost::decodeMessageFromChre(buffer.data(), buffer.size(), defaults),
                  !other);
    }
    EXPECT_STREQ(fbs::EnumNameChreMessage(static_cast<fbs::ChreMessage>(55)), "DataFlowAlert");
    EXPECT_EQ(fbs::ChreMessage::MAX, fbs::ChreMessage::DataFlowAlert);
}

// More tables than the verifier allows, by naming one list of services once for every nanoapp.
Bytes Amplified(size_t nanoapps, size_t services) {
    FlatBufferBuilder builder;
    const auto service = fbs::CreateNanoappRpcService(builder);
    const auto list = builder.CreateVector(std::vector(services, service));
    const auto nanoapp = fbs::CreateNanoappListEntry(builder, 1, 1, true, false, 0, list);
    const auto all = builder.CreateVector(std::vector(nanoapps, nanoapp));
    const auto response = fbs::CreateNanoappListResponse(builder, all);
    HostProtocolCommon::finalize(builder, fbs::ChreMessage::NanoappListResponse, response.Union(),
                                 0);
    return Finished(builder);
}

TEST(HostProtocol, RefusesWhatIsNoMessage) {
    Recorder recorder;
    recorder.accept_others = true;
    EXPECT_FALSE(HostProtocolCommon::verifyMessage(nullptr, 0));
    EXPECT_FALSE(HostProtocolCommon::verifyMessage(nullptr, 40));
    EXPECT_FALSE(HostProtocolHost::decodeMessageFromChre(nullptr, 40, recorder));
    EXPECT_FALSE(HostProtocolCommon::verifyMessage(kListRequest.data(), SIZE_MAX));

    struct Case {
        const char* what;
        size_t at;
        uint8_t value;
    };
    const Case cases[] = {{"no message", 12, 0},           {"no host address", 14, 0},
                          {"no payload", kUnionNumber, 1}, {"root outside", 0, 40},
                          {"message outside", 24, 16},     {"vtable outside", 16, 17},
                          {"field outside", 14, 23},       {"odd vtable", 6, 9}};
    for (const Case& one : cases) {
        Bytes buffer = kListRequest;
        buffer[one.at] = one.value;
        EXPECT_EQ(recorder.Decode(buffer), "") << one.what;
        EXPECT_FALSE(recorder.decoded) << one.what;
    }

    EXPECT_EQ(recorder.Decode(Amplified(990, 1000)), "list");
    const Bytes amplified = Amplified(1010, 1000);
    EXPECT_LT(amplified.size(), 32768U);
    EXPECT_EQ(recorder.Decode(amplified), "");

    FlatBufferBuilder builder(64);
    HostProtocolCommon::encodeNanoappMessage(builder, 1, 2, 3, "payload", 8, 4, 5, true, true, 6);
    for (size_t size = 0; size < builder.GetSize(); ++size) {
        const Bytes cut(builder.GetBufferPointer(), builder.GetBufferPointer() + size);
        EXPECT_EQ(recorder.Decode(cut), "") << size;
    }
}

}  // namespace
}  // namespace android::chre
