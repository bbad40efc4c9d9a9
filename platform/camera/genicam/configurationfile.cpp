// Configurations as files: reading one, and writing it so that there is a whole file at any moment.
#include "configuration.h"

#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using namespace TovCam;

namespace {

constexpr std::size_t MaxFile = 8u << 20; // bytes

class Descriptor
{
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor)
    {
    }
    ~Descriptor()
    {
        Close();
    }
    Descriptor(Descriptor const &) = delete;
    Descriptor &operator=(Descriptor const &) = delete;
    int Get() const
    {
        return m_descriptor;
    }
    bool Close()
    {
        int const descriptor = std::exchange(m_descriptor, -1);
        return descriptor < 0 || close(descriptor) == 0;
    }

private:
    int m_descriptor;
};

bool WriteAll(int descriptor, std::string const &text)
{
    for (std::size_t done = 0; done < text.size();) {
        ssize_t const written = write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR)
            return false;
        done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
    return true;
}

bool Copy(std::string const &from, std::string const &to)
{
    Descriptor const source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status;
    if (source.Get() < 0 || fstat(source.Get(), &status) != 0)
        return false;
    Descriptor target(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, status.st_mode & 0777));
    if (target.Get() < 0)
        return false;
    std::string block(65536, '\0');
    for (;;) {
        ssize_t const got = read(source.Get(), block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 || !WriteAll(target.Get(), block.substr(0, static_cast<std::size_t>(got))))
            return false;
        if (got == 0)
            return fsync(target.Get()) == 0 && target.Close();
    }
}

// Gives the file a second name, which remains when another file takes its first one. 0, or an errno, and nothing has
// changed.
int KeepAs(std::string const &file, std::string const &name)
{
    std::string const temporary = name + '.' + std::to_string(g_random_int()) + ".part";
    // Not every file system has links.
    bool const kept = (link(file.c_str(), temporary.c_str()) == 0 || Copy(file, temporary)) &&
                      rename(temporary.c_str(), name.c_str()) == 0;
    int const error = errno;
    unlink(temporary.c_str()); // also where both names were the same file already: nothing is renamed then
    return kept ? 0 : error;
}

} // namespace

std::int32_t Configuration::Read(char const *path)
{
    report = {};
    camera = {};
    auto const failed = [this](int error, std::int32_t status) {
        report.problem = ConfigurationReport::Problem::File;
        report.systemError = error;
        return status;
    };
    // A pipe that nobody writes to would block the caller.
    Descriptor const file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.Get() < 0)
        return failed(errno, errno == ENOENT || errno == ENOTDIR ? TOV_CAM_ERR_FILE_NOT_FOUND : TOV_CAM_ERR_FILE_READ);
    struct stat status;
    if (fstat(file.Get(), &status) != 0)
        return failed(errno, TOV_CAM_ERR_FILE_READ);
    if (!S_ISREG(status.st_mode))
        return failed(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, TOV_CAM_ERR_FILE_READ);
    if (static_cast<std::uint64_t>(status.st_size) > MaxFile) {
        report.problem = ConfigurationReport::Problem::NoConfiguration;
        return TOV_CAM_ERR_WRONG_CONFIGURATION;
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t size = 0;
    for (ssize_t got = 1; got != 0 && size < text.size(); size += static_cast<std::size_t>(std::max<ssize_t>(got, 0))) {
        got = read(file.Get(), text.data() + size, text.size() - size);
        if (got < 0 && errno != EINTR)
            return failed(errno, TOV_CAM_ERR_FILE_READ);
    }
    text.resize(size);
    return Parse(text);
}

std::int32_t Configuration::Write(char const *path)
{
    auto const failed = [this](ConfigurationReport::Problem problem, int error, std::int32_t status) {
        report.problem = problem;
        report.systemError = error;
        return status;
    };
    using enum ConfigurationReport::Problem;
    // Behind a link the file itself is replaced.
    std::unique_ptr<char, decltype(&std::free)> const resolved(realpath(path, nullptr), std::free);
    std::string const target = resolved ? resolved.get() : path;
    struct stat old;
    bool const exists = stat(target.c_str(), &old) == 0;
    if (exists && !S_ISREG(old.st_mode))
        return failed(File, S_ISDIR(old.st_mode) ? EISDIR : EINVAL, TOV_CAM_ERR_FILE_NOT_FOUND);
    if (exists && access(target.c_str(), W_OK) != 0)
        return failed(File, errno, TOV_CAM_ERR_FILE_NOT_FOUND);
    std::string const temporary = target + '.' + std::to_string(g_random_int()) + ".part";
    Descriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file.Get() < 0)
        return failed(File, errno, TOV_CAM_ERR_FILE_NOT_FOUND);
    auto const giveUp = [&](ConfigurationReport::Problem problem, int error, std::int32_t status) {
        unlink(temporary.c_str());
        return failed(problem, error, status);
    };
    if (!WriteAll(file.Get(), ToText()) || (exists && fchmod(file.Get(), old.st_mode & 07777) != 0) ||
        fsync(file.Get()) != 0 || !file.Close())
        return giveUp(File, errno, TOV_CAM_ERR_UNKNOWN);
    if (exists && old.st_size > 0 && IsOfAnother(target)) {
        if (int const error = KeepAs(target, target + '~'))
            return giveUp(NotKept, error, TOV_CAM_ERR_FILE_NOT_FOUND);
        report.keptAs = target + '~';
    }
    if (rename(temporary.c_str(), target.c_str()) != 0)
        return giveUp(File, errno, TOV_CAM_ERR_UNKNOWN);
    // So that the new name outlasts a crash too.
    std::size_t const slash = target.rfind('/');
    Descriptor const folder(open(slash == std::string::npos ? "." : target.substr(0, slash + 1).c_str(),
                                 O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() >= 0)
        fsync(folder.Get());
    return TOV_CAM_ERR_OK;
}

// Whether a file may be another camera's; whose it is goes into the report.
bool Configuration::IsOfAnother(std::string const &file)
{
    Configuration other;
    other.Read(file.c_str());
    report.vendor = other.camera.vendor;
    report.model = other.camera.model;
    report.serial = other.camera.serial;
    return other.camera.vendor != camera.vendor || other.camera.model != camera.model ||
           other.camera.serial != camera.serial;
}
