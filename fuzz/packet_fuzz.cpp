// A packet of any bytes through one decoder of the protocol log; the build chooses which one.
#include "driver.h"

#include "logstringmaker.h"

#include <vector>

namespace {

constexpr std::size_t ZerosBehind = 64; // farther than any decoder shows
constexpr int LongLine = 2000;          // a list of events; worth a look, but not many

QString Decode(std::vector<std::uint8_t> const &packet)
{
    FUZZ_MAKER maker;
    return maker.FUZZ_OPERATION(packet.data(), packet.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    std::vector<std::uint8_t> packet(data, data + size);
    // A list of 4,096 events takes as long as hundreds of other packets: seldom.
    if (FUZZ_LENGTH_AT && size > FUZZ_LENGTH_AT && !IsOneOf(100, data, size))
        packet[FUZZ_LENGTH_AT] = 0;
    QString const line = Decode(packet);
    if (line.isEmpty())
        FuzzFail("a packet without a line");
    // The first four bytes of a packet may be shown as the text they are.
    if (!line.startsWith(QLatin1String("Prefix="))) {
        for (QChar const c : line) {
            if (c < QLatin1Char(' ') || c > QLatin1Char('~'))
                FuzzFail("not one line of text");
        }
    }
    // Where the size decides nothing, what lies past the end is zero.
    if (FUZZ_SIZELESS) {
        packet.resize(size + ZerosBehind);
        if (Decode(packet) != line)
            FuzzFail("bytes past the end are not zero");
    }
    return line.size() < LongLine ? 0 : FuzzRefused;
}
