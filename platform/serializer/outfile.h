// A file being written: large pieces go past the page cache where the file system can, nothing that is there is ever
// overwritten, and a file that must appear whole has no name until it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

// All operations return 0 or an errno value; EILSEQ says that the file system does not accept the name. One thread at a
// time; an object is used for one file after another and keeps its memory.
class OutFile
{
public:
    enum class Road {
        Cached, // small or slowly growing files: through the page cache
        Direct, // frames: O_DIRECT where memory and file position are aligned to pages, through a page cache of our own
                // elsewhere
    };
    enum class Birth {
        Unnamed, // without a name until Publish, where the file system can do that
        Beside,  // under a temporary name until Publish
    };
    static constexpr std::size_t Page = 4096; // what disks want aligned; the kernel's own pages may be larger

    OutFile() = default;
    ~OutFile();
    OutFile(OutFile const &) = delete;
    OutFile &operator=(OutFile const &) = delete;

    // A file that will appear under `name`, or the next free number of it, when Publish is called. Missing folders are
    // made. `size` bytes are taken from the file system at once, so that a full one is noticed before anything is
    // written.
    int CreateHidden(std::string const &name, std::uint64_t size, Road road, Birth birth = Birth::Unnamed);
    // Begins a series of hidden files. The first one in a folder, since the object was made or this was called, removes
    // what is left over there. A forked process calls this before its first file.
    void ForgetFolders();
    // A file that is under its name from now on.
    int CreateVisible(std::string const &name, Road road);

    int Append(void const *data, std::size_t size);
    int AppendZeros(std::uint64_t size);
    // Anywhere; what lies between the end and a position beyond it becomes zeros.
    int WriteAt(std::uint64_t position, void const *data, std::size_t size);
    std::uint64_t Size() const
    {
        return m_size;
    }
    // Room for `size` more bytes, so that they will not fail for the lack of it; 0 as well where the file system cannot
    // say. After a failure there is as much room as before.
    int Reserve(std::uint64_t size);
    // What Reserve takes at least, of the open file; 64 MB otherwise.
    void SetReserveStep(std::uint64_t bytes)
    {
        m_reserveStep = bytes;
    }
    // Drops everything after it; forgets an earlier error.
    int CutTo(std::uint64_t size);
    // Hands everything to the kernel, so that the end of this process loses nothing.
    int Flush();

    // Gives a hidden file its name and closes it. After an error the file is gone.
    int Publish();
    // Closes a visible file.
    int Close();
    // Closes and removes the file, hidden or visible.
    void Abandon();

    bool IsOpen() const
    {
        return m_file >= 0;
    }
    // Whether a visible file, while open, has been deleted, or its disk is gone.
    bool IsLost() const;
    // The name it has or will have; after Publish and CreateVisible with its number.
    std::string const &Name() const
    {
        return m_name;
    }

private:
    int OpenHidden(std::string const &folder, Birth birth);
    void Sweep(std::string const &folder);
    void GiveBackReserve();
    void SetDirect(bool direct);
    int WriteOut(void const *first, std::size_t firstSize, void const *second, std::size_t secondSize);
    int WriteStaged(std::size_t keep);
    int GiveName();
    void Forget();
    void Leave();

    int m_file = -1;
    bool m_direct = false;           // O_DIRECT is set
    bool m_staging = false;          // appended bytes are gathered to pages
    bool m_canReserve = true;        // until the file system says otherwise
    std::string m_name;              // the name asked for, then the one it has
    std::string m_temporary;         // name until Publish; empty: none
    bool m_visible = false;          // m_name is a file of ours
    std::uint64_t m_size = 0;        // with what is staged
    std::uint64_t m_written = 0;     // given to the kernel; a whole number of pages while staging
    std::uint64_t m_flushed = 0;     // given to the kernel by Flush, with the part of a page that stays staged
    std::uint64_t m_reserved = 0;    // taken from the file system
    std::uint64_t m_reserveStep = 0; // what Reserve takes at least
    std::set<std::string> m_swept;   // folders
    std::string m_mark;              // this process', in temporary names; empty until there is one
    unsigned char *m_stage = nullptr;
};
