#include "FileVersion.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

// The resource tree of the executable is walked, rather than the file searched for the record's
// signature: an installer may carry other libraries' records, and code that handles versions
// carries the bare signature.

namespace
{

constexpr uint32_t versionType = 16;
constexpr uint32_t anyEntry = 0xffffffff;
constexpr uint32_t isFolder = 0x80000000;
constexpr uint32_t recordSignature = 0xFEEF04BD;

/// Part of a file. Numbers are stored with the lowest byte first.
class Bytes
{
public:
    /// The \a size bytes at \a offset, or nothing when the file ends before.
    Bytes(std::ifstream &file, uint64_t offset, size_t size) : m_bytes(size)
    {
        file.clear();
        file.seekg(static_cast<std::streamoff>(offset));
        if (!file.read(reinterpret_cast<char *>(m_bytes.data()),
                       static_cast<std::streamsize>(size)))
            m_bytes.clear();
    }

    bool isEmpty() const { return m_bytes.empty(); }
    const unsigned char *at(size_t offset) const { return m_bytes.data() + offset; }
    uint32_t u16(size_t offset) const { return m_bytes[offset] | m_bytes[offset + 1] << 8; }
    uint32_t u32(size_t offset) const { return u16(offset) | u16(offset + 2) << 16; }

private:
    std::vector<unsigned char> m_bytes;
};

/// A Windows executable or library, read piece by piece. Sizes and places in it are what the file
/// claims: each piece is of a bounded size, and one beyond the file's end counts as missing.
class Executable
{
public:
    explicit Executable(const std::string &path) : m_file(path, std::ios::binary) {}

    /// Reads the headers; false when this is no executable or it has no resources.
    bool open();
    /// The version in the first version resource; empty when there is none.
    std::string version();

private:
    /// Where the file holds what is loaded at \a address; 0 when nowhere.
    uint64_t placeOf(uint32_t address) const;
    /// Where in the tree the entry \a id of the folder at \a folder leads to, with the mark for
    /// a folder; 0, which is the root itself, when there is no such entry.
    uint32_t findEntry(uint32_t folder, uint32_t id);

    struct Section {
        uint32_t address, size, place;
    };
    std::ifstream m_file;
    std::vector<Section> m_sections;
    uint64_t m_resources = 0;
};

bool Executable::open()
{
    const Bytes dosHeader(m_file, 0, 0x40);
    if (dosHeader.isEmpty() || std::memcmp(dosHeader.at(0), "MZ", 2) != 0)
        return false;
    const uint64_t place = dosHeader.u32(0x3c);
    const Bytes fileHeader(m_file, place, 24);
    if (fileHeader.isEmpty() || std::memcmp(fileHeader.at(0), "PE\0\0", 4) != 0)
        return false;

    const uint32_t optionalSize = fileHeader.u16(20);
    const Bytes optionalHeader(m_file, place + 24, optionalSize);
    if (optionalSize < 2 || optionalHeader.isEmpty())
        return false;
    // 64-bit executables have wider fields before the table of directories.
    const uint32_t directories = optionalHeader.u16(0) == 0x20b ? 112 : 96;
    if (optionalSize < directories + 24 || optionalHeader.u32(directories - 4) < 3)
        return false;

    const uint32_t sectionCount = fileHeader.u16(6);
    const Bytes sections(m_file, place + 24 + optionalSize, sectionCount * 40);
    if (sections.isEmpty())
        return false;
    for (uint32_t i = 0; i < sectionCount; ++i)
        m_sections.push_back(
            {sections.u32(i * 40 + 12), sections.u32(i * 40 + 16), sections.u32(i * 40 + 20)});
    m_resources = placeOf(optionalHeader.u32(directories + 16));
    return m_resources != 0;
}

uint64_t Executable::placeOf(uint32_t address) const
{
    for (const Section &section : m_sections) {
        if (address >= section.address && address - section.address < section.size)
            return uint64_t(section.place) + (address - section.address);
    }
    return 0;
}

uint32_t Executable::findEntry(uint32_t folder, uint32_t id)
{
    const uint64_t place = m_resources + (folder & ~isFolder);
    const Bytes header(m_file, place, 16);
    if (header.isEmpty())
        return 0;
    const uint32_t count = header.u16(12) + header.u16(14);
    const Bytes entries(m_file, place + 16, count * 8);
    for (uint32_t i = 0; !entries.isEmpty() && i < count; ++i) {
        if (id == anyEntry || entries.u32(i * 8) == id)
            return entries.u32(i * 8 + 4);
    }
    return 0;
}

std::string Executable::version()
{
    // Three levels: the type, the resource's own name, its language.
    const uint32_t names = findEntry(0, versionType);
    const uint32_t languages = names & isFolder ? findEntry(names, anyEntry) : 0;
    const uint32_t entry = languages & isFolder ? findEntry(languages, anyEntry) : isFolder;
    if (entry & isFolder || entry == 0)
        return {};
    const Bytes data(m_file, m_resources + entry, 16);
    const uint64_t place = data.isEmpty() ? 0 : placeOf(data.u32(0));
    // Sizes, the name in 16-bit characters, two bytes to align, then the record.
    constexpr size_t recordOffset = 40, recordSize = 52;
    if (place == 0 || data.u32(4) < recordOffset + recordSize)
        return {};
    const Bytes block(m_file, place, recordOffset + recordSize);
    if (block.isEmpty() || block.u16(2) < recordSize ||
        std::memcmp(block.at(6), u"VS_VERSION_INFO", 32) != 0 ||
        block.u32(recordOffset) != recordSignature)
        return {};
    const uint32_t high = block.u32(recordOffset + 8), low = block.u32(recordOffset + 12);
    return std::to_string(high >> 16) + '.' + std::to_string(high & 0xffff) + '.' +
           std::to_string(low >> 16) + '.' + std::to_string(low & 0xffff);
}

} // namespace

std::string fileVersion(const std::string &path)
{
    // Opening a pipe would wait for its writer.
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        return {};
    Executable executable(path);
    return executable.open() ? executable.version() : std::string();
}
