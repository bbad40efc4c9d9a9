#include "linestore.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <sys/mman.h>

namespace {

constexpr std::size_t BlockSize = 1 << 20;
constexpr quint32 WideFlag = 1u << 31; // in RecordHead::channel

struct RecordHead
{
    qlonglong time;
    quint32 channel;
    quint32 bytes; // of text behind the head
};
using Offset = quint32;

char *MapMemory(std::size_t size)
{
    void *const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    return static_cast<char *>(memory);
}

bool IsNarrow(QString const &text)
{
    unsigned all = 0;
    for (QChar const c : text)
        all |= c.unicode();
    return all <= 0xFF;
}

} // namespace

// Mapped from the system: the heap would keep what is freed below its top.
LineStore::Block::Block(std::size_t minimum, std::size_t row)
    : size(std::max(minimum, BlockSize)),
      firstRow(row),
      memory(MapMemory(size))
{
}

LineStore::Block::~Block()
{
    munmap(memory, size);
}

LineStore::Line LineStore::Block::At(std::size_t row) const
{
    Offset offset;
    std::memcpy(&offset, memory + size - (row - firstRow + 1) * sizeof offset, sizeof offset);
    RecordHead head;
    std::memcpy(&head, memory + offset, sizeof head);
    return {head.time, head.channel & ~WideFlag, (head.channel & WideFlag) != 0, memory + offset + sizeof head,
            head.bytes};
}

QString LineStore::Line::Message() const
{
    if (!wide)
        return QString::fromLatin1(text, static_cast<int>(bytes));
    QString message(static_cast<int>(bytes / sizeof(QChar)), Qt::Uninitialized);
    std::memcpy(message.data(), text, bytes);
    return message;
}

void LineStore::Append(qlonglong time, QString const &channel, QString const &message)
{
    bool const wide = !IsNarrow(message);
    auto const characters = static_cast<std::size_t>(message.size());
    std::size_t const bytes = wide ? characters * sizeof(QChar) : characters;
    std::size_t const record = sizeof(RecordHead) + bytes;
    std::size_t const inBlock = m_blocks.empty() ? 0 : m_count - m_blocks.back()->firstRow;
    bool const fits = !m_blocks.empty() && m_used + record + (inBlock + 1) * sizeof(Offset) <= m_blocks.back()->size;
    RecordHead const head{time, IndexOfChannel(channel) | (wide ? WideFlag : 0), static_cast<quint32>(bytes)};
    if (!fits) {
        m_blocks.push_back(std::make_shared<Block>(record + sizeof(Offset), m_count));
        m_used = 0;
    }

    Block const &block = *m_blocks.back();
    char *const at = block.memory + m_used;
    std::memcpy(at, &head, sizeof head);
    if (wide)
        std::memcpy(at + sizeof head, message.constData(), bytes);
    else
        std::transform(message.cbegin(), message.cend(), at + sizeof head,
                       [](QChar c) { return static_cast<char>(c.unicode()); });
    auto const offset = static_cast<Offset>(m_used);
    std::memcpy(block.memory + block.size - (m_count - block.firstRow + 1) * sizeof offset, &offset, sizeof offset);
    m_used += record;
    ++m_count;
}

LineStore::Line LineStore::At(std::size_t row) const
{
    auto const after = std::upper_bound(m_blocks.begin(), m_blocks.end(), row,
                                        [](std::size_t wanted, auto const &block) { return wanted < block->firstRow; });
    return (*std::prev(after))->At(row);
}

quint32 LineStore::IndexOfChannel(QString const &channel)
{
    auto const known = std::find(m_channels.begin(), m_channels.end(), channel);
    auto const index = static_cast<quint32>(known - m_channels.begin());
    if (known == m_channels.end())
        m_channels.push_back(channel);
    return index;
}
