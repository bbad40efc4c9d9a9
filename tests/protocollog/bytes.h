// Packets as text.
#pragma once

#include <QByteArray>

#include <cstdint>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// Pairs of digits; blanks between them do not count.
inline Bytes FromHex(std::string const &text)
{
    QByteArray const raw = QByteArray::fromHex(QByteArray::fromStdString(text));
    return {raw.begin(), raw.end()};
}
