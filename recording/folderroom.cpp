#include "folderroom.h"

#include <QFile>

#include <filesystem>
#include <new>
#include <system_error>

std::int64_t BytesLeftFor(QString const &path)
{
    try {
        std::filesystem::path folder(QFile::encodeName(path).constData());
        std::error_code error;
        do
            folder = folder.parent_path();
        while (!std::filesystem::exists(folder, error) && folder.has_relative_path()); // made with the first file
        std::filesystem::space_info const space = std::filesystem::space(folder, error);
        return error ? -1 : static_cast<std::int64_t>(space.available);
    } catch (std::bad_alloc const &) {
        return -1;
    }
}
