// The ledger of a recording as a file beside its frames.
#pragma once

#include "lossfindings.h"
#include "recordingledger.h"

#include <QString>

#include <cstdint>
#include <utility>
#include <vector>

// `reasons`: why frames failed, and how many. `losses`: where frames were lost. Returns why the file could not be
// written, and its name; empty when it was. It is there wholly or not at all.
QString WriteLedgerFile(QString const &file, RecordingLedger const &ledger,
                        std::vector<std::pair<QString, std::int64_t>> const &reasons,
                        std::vector<LossFinding> const &losses);
