// Lines of a log, many millions of them: packed one after the other in large blocks, about 20 bytes per line besides
// its text, whose characters take one byte each where 8 bits do. Blocks come from the system and go back to it. Written
// lines never change.
//
// Thread-safety: none of its own, with one exception: a copy is cheap, shares the lines written so far, and may be read
// while the original is appended to.
#pragma once

#include <QString>

#include <cstddef>
#include <memory>
#include <vector>

class LineStore
{
public:
    // One line as it lies in its block.
    struct Line
    {
        qlonglong time;
        quint32 channel; // index into the channels
        bool wide;       // 16 bits a character
        char const *text;
        std::size_t bytes;

        QString Message() const;
    };

    std::size_t Count() const
    {
        return m_count;
    }
    // Throws std::bad_alloc.
    void Append(qlonglong time, QString const &channel, QString const &message);
    Line At(std::size_t row) const;
    QString const &ChannelOf(Line const &line) const
    {
        return m_channels.at(line.channel);
    }
    // Calls it for every line, in order.
    template<class Visit>
    void ForEach(Visit const &visit) const
    {
        ForEachWhile([&visit](Line const &line) {
            visit(line);
            return true;
        });
    }
    // The same, for as long as it returns true. Returns whether it always did.
    template<class Visit>
    bool ForEachWhile(Visit const &visit) const
    {
        for (std::size_t b = 0; b < m_blocks.size(); ++b) {
            if (!VisitBlock(b, visit))
                return false;
        }
        return true;
    }
    // The same, and gives up each block after its last line. Nothing else may be done with the store afterwards.
    template<class Visit>
    bool Drain(Visit const &visit)
    {
        for (std::size_t b = 0; b < m_blocks.size(); ++b) {
            if (!VisitBlock(b, visit))
                return false;
            m_blocks[b].reset();
        }
        return true;
    }

private:
    // Records grow from its begin, their offsets from its end towards them.
    struct Block
    {
        Block(std::size_t minimum, std::size_t row);
        ~Block();
        Block(Block const &) = delete;
        Block &operator=(Block const &) = delete;
        Line At(std::size_t row) const;

        std::size_t const size;
        std::size_t const firstRow;
        char *const memory;
    };

    template<class Visit>
    bool VisitBlock(std::size_t b, Visit const &visit) const
    {
        std::size_t const end = b + 1 < m_blocks.size() ? m_blocks[b + 1]->firstRow : m_count;
        for (std::size_t row = m_blocks[b]->firstRow; row < end; ++row) {
            if (!visit(m_blocks[b]->At(row)))
                return false;
        }
        return true;
    }
    quint32 IndexOfChannel(QString const &channel);

    std::vector<std::shared_ptr<Block>> m_blocks;
    std::size_t m_used = 0; // bytes of records in the last block
    std::size_t m_count = 0;
    // The few there are. Not a container of Qt's: its copies share memory that the last owner writes in place again.
    std::vector<QString> m_channels;
};
