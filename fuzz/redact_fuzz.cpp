// The redaction of reports and bundles, whatever they are: what was written undoes to what was
// read, to the byte, however it came in pieces, and what was written is read again without harm. An
// input is a byte, which options and the sizes of the pieces come from, and the report or the
// bundle.

#include <algorithm>
#include <string>
#include <string_view>

#include "bytes.h"
#include "changes.h"
#include "fuzz_input.h"
#include "redaction.h"
#include "values.h"

namespace {

class Pieces : public reader::ByteSource {
  public:
    Pieces(std::string_view bytes, size_t most) : rest_(bytes), most_(most) {}
    std::string_view Read(size_t most) override {
        const std::string_view piece = rest_.substr(0, std::min(most, most_));
        rest_.remove_prefix(piece.size());
        return piece;
    }

  private:
    std::string_view rest_;
    const size_t most_;
};

reader::Sink Into(std::string& text) {
    return [&text](std::string_view bytes) {
        text += bytes;
        return true;
    };
}

struct Redacted {
    std::string text;
    bool read = false;
};

Redacted Redact(std::string_view bytes, bool bundle, const reader::RedactionOptions& options,
                size_t piece) {
    reader::Values values;
    reader::Redaction redaction(options, values);
    reader::Changes changes;
    Redacted redacted;
    Pieces learnt(bytes, piece);
    Pieces nothing("", 1);
    redacted.read =
            (bundle ? redaction.LearnBundle(learnt) : redaction.LearnReport(learnt)).empty();
    if (!redacted.read) return redacted;
    Pieces read(bytes, piece);
    std::string no_report;
    redaction.WriteReport(bundle ? nothing : read, Into(bundle ? no_report : redacted.text),
                          bundle ? nullptr : &changes);
    if (bundle) redaction.WriteBundle(read, Into(redacted.text), &changes);
    std::string undone;
    Pieces written(redacted.text, piece);
    Require(reader::Undo(written, changes, Into(undone)), "it can be undone");
    Require(undone == bytes, "and then is what it was");
    Pieces again(redacted.text, piece);
    if (bundle) {
        redaction.CheckBundle(again);
    } else {
        redaction.CheckReport(again);
    }
    return redacted;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const unsigned seed = input.Byte();
    const auto rest = input.Bytes(size);
    const std::string_view bytes(reinterpret_cast<const char*>(rest.data()), rest.size());
    reader::RedactionOptions options;
    options.keep_binary = (seed & 1) != 0;
    options.without_sensors = (seed & 2) != 0;
    options.without_times = (seed & 4) != 0;
    const size_t piece = 1 + (seed >> 3) * size_t{97};
    for (const bool bundle : {false, true}) {
        const Redacted whole = Redact(bytes, bundle, options, SIZE_MAX);
        const Redacted pieces = Redact(bytes, bundle, options, piece);
        Require(whole.read == pieces.read && whole.text == pieces.text,
                "the pieces make no difference");
    }
    return 0;
}
