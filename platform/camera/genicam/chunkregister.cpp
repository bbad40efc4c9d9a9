#include "chunkregister.h"

#include <bit>
#include <limits>
#include <utility>

namespace {

// The entries of a structure have its address, and fields of their own.
ArvGcNode *HolderOf(ArvGcNode *node)
{
    return ARV_IS_GC_STRUCT_ENTRY_NODE(node) ? ARV_GC_NODE(arv_dom_node_get_parent_node(ARV_DOM_NODE(node))) : node;
}

ArvGcPropertyNode *ChunkIdOf(ArvGcNode *node)
{
    ArvGcNode *const port = LinkOf(HolderOf(node), ARV_GC_PROPERTY_NODE_TYPE_P_PORT);
    return port ? PropertyOf(port, ARV_GC_PROPERTY_NODE_TYPE_CHUNK_ID) : nullptr;
}

// Ids are hexadecimal, and there is no prefix to tell.
bool ReadId(ArvGcPropertyNode *property, std::uint32_t &id)
{
    std::string const text = property ? ContentOf(property) : std::string();
    char *end = nullptr;
    guint64 const number = g_ascii_strtoull(text.c_str(), &end, 16);
    id = static_cast<std::uint32_t>(number);
    return end != text.c_str() && number <= std::numeric_limits<std::uint32_t>::max();
}

bool Says(ArvGcPropertyNode *property, char const *word)
{
    return property && ContentOf(property) == word;
}

// Of the eight bytes at most of an integer; false for bits that it does not have.
bool SetBits(ArvGcNode *node, ChunkRegister &number)
{
    number.bits = number.length * 8;
    ArvGcPropertyNode *const bit = PropertyOf(node, ARV_GC_PROPERTY_NODE_TYPE_BIT);
    ArvGcPropertyNode *const first = bit ? bit : PropertyOf(node, ARV_GC_PROPERTY_NODE_TYPE_LSB);
    ArvGcPropertyNode *const last = bit ? bit : PropertyOf(node, ARV_GC_PROPERTY_NODE_TYPE_MSB);
    gint64 const limit = number.bits;
    gint64 low = first ? arv_gc_property_node_get_int64(first, nullptr) : 0;
    gint64 high = last ? arv_gc_property_node_get_int64(last, nullptr) : 31;
    if (low < 0 || high < 0 || low >= limit || high >= limit)
        return false;
    // Bits are counted from the other end then.
    if (number.isBigEndian) {
        low = limit - 1 - low;
        high = limit - 1 - high;
    }
    if (low > high)
        std::swap(low, high);
    number.lowest = static_cast<unsigned>(low);
    number.bits = static_cast<unsigned>(high - low + 1);
    return true;
}

} // namespace

std::optional<ChunkNumber> ChunkRegister::Read(std::span<std::uint8_t const> bytes) const
{
    if (offset > bytes.size() || length > bytes.size() - offset)
        return std::nullopt;
    bytes = bytes.subspan(static_cast<std::size_t>(offset), length);
    std::uint64_t raw = 0;
    for (unsigned i = 0; i < length; ++i)
        raw = raw << 8 | bytes[isBigEndian ? i : length - 1 - i];
    if (isReal)
        return length == 4 ? double(std::bit_cast<float>(static_cast<std::uint32_t>(raw))) : std::bit_cast<double>(raw);
    raw >>= lowest;
    if (bits < 64) {
        std::uint64_t const mask = (std::uint64_t(1) << bits) - 1;
        raw = isSigned && (raw >> (bits - 1) & 1) != 0 ? raw | ~mask : raw & mask;
    }
    return static_cast<std::int64_t>(raw);
}

bool IsInChunk(ArvGcNode *node)
{
    return ChunkIdOf(node) != nullptr;
}

std::optional<ChunkRegister> DescribeChunkRegister(ArvGcNode *node)
{
    bool const isMasked = ARV_IS_GC_MASKED_INT_REG_NODE(node) || ARV_IS_GC_STRUCT_ENTRY_NODE(node);
    ChunkRegister number;
    number.isReal = ARV_IS_GC_FLOAT_REG_NODE(node);
    ArvGcNode *const holder = HolderOf(node);
    if ((!isMasked && !number.isReal && !ARV_IS_GC_INT_REG_NODE(node)) || !ARV_IS_GC_REGISTER(holder) ||
        !ReadId(ChunkIdOf(node), number.chunk))
        return std::nullopt;
    ErrorSlot addressError, lengthError;
    number.offset = arv_gc_register_get_address(ARV_GC_REGISTER(holder), addressError);
    guint64 const length = arv_gc_register_get_length(ARV_GC_REGISTER(holder), lengthError);
    if (addressError.Status() != TOV_CAM_ERR_OK || lengthError.Status() != TOV_CAM_ERR_OK)
        return std::nullopt;
    if (number.isReal ? length != 4 && length != 8 : length < 1 || length > 8)
        return std::nullopt;
    number.length = static_cast<unsigned>(length);
    number.isBigEndian = Says(PropertyOf(holder, ARV_GC_PROPERTY_NODE_TYPE_ENDIANNESS), "BigEndian");
    number.isSigned = Says(PropertyOf(node, ARV_GC_PROPERTY_NODE_TYPE_SIGN), "Signed");
    number.bits = number.length * 8;
    if (isMasked && !SetBits(node, number))
        return std::nullopt;
    return number;
}
