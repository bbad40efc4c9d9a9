// Datagrams of any bytes as answers of a camera. An input is a request, as in RequestHead, and the datagram.
#include "driver.h"

#include "gige/gvcpanswer.h"

namespace {

struct RequestHead // big-endian; the answer's size 0xFFFF stands for any
{
    static constexpr std::size_t Command = 0, Id = 2, AnswerSize = 4, Address = 6, Size = 10;
};
constexpr std::size_t LongestInput = 2048;

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    using Kind = GvcpAnswer::Kind;
    if (size < RequestHead::Size || size > LongestInput)
        return FuzzRefused;
    std::span<std::uint8_t const> const datagram(data + RequestHead::Size, size - RequestHead::Size);
    GvcpRequest request{LoadBig16(data + RequestHead::Command), LoadBig16(data + RequestHead::Id),
                        std::span(data + RequestHead::Address, gvcp::RegisterSize)};
    if (std::uint16_t const answerSize = LoadBig16(data + RequestHead::AnswerSize); answerSize != 0xFFFF)
        request.answerSize = answerSize;
    GvcpAnswer const answer = ReadGvcpAnswer(request, datagram);
    std::uint32_t sum = 0; // every byte is there
    for (std::uint8_t const byte : answer.body)
        sum += byte;
    volatile std::uint32_t const seen = sum;
    static_cast<void>(seen);
    if (answer.kind == Kind::Good) {
        Demand(answer.body.size() + gvcp::HeaderSize == datagram.size(), "a body of another length");
        Demand(request.answerSize == GvcpRequest::AnySize || request.answerSize == answer.body.size(),
               "not what was asked for");
        Demand(LoadBig16(&datagram[6]) == request.id, "an answer to another request");
    } else {
        Demand(answer.body.empty(), "a body of what is no answer");
    }
    Demand((answer.kind == Kind::Refused) == ((answer.status & 0x8000) != 0), "a refusal without a status");
    return answer.kind > Kind::Stale ? 0 : FuzzRefused;
}
