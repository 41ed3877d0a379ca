// Writes a Windows library that holds nothing but a version resource, for builds without a resource
// compiler. Arguments: the file to write, then the version as four numbers between dots.

#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

namespace
{

constexpr uint32_t fileAlignment = 0x200;
constexpr uint32_t sectionAddress = 0x1000;
constexpr uint32_t versionType = 16;

/// A file in the making; numbers are appended with the lowest byte first.
class Image
{
public:
    void add16(uint32_t value)
    {
        m_bytes += static_cast<char>(value & 0xff);
        m_bytes += static_cast<char>(value >> 8 & 0xff);
    }
    void add32(uint32_t value)
    {
        add16(value & 0xffff);
        add16(value >> 16);
    }
    void addText(const std::string &text) { m_bytes += text; }
    void fillTo(size_t size) { m_bytes.resize(size); }
    size_t size() const { return m_bytes.size(); }
    const std::string &bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

/// One step of the resource tree: a folder with the one entry \a id at \a offset.
void addResourceFolder(Image &image, uint32_t id, uint32_t offset)
{
    for (int i = 0; i < 3; ++i)
        image.add32(0); // attributes, time, the resource's own version
    image.add16(0);     // entries with names
    image.add16(1);     // entries with numbers
    image.add32(id);
    image.add32(offset);
}

Image resourceSection(const std::array<uint32_t, 4> &version)
{
    constexpr uint32_t folderSize = 24, entrySize = 16, isFolder = 0x80000000;
    constexpr uint32_t blockOffset = 3 * folderSize + entrySize, blockSize = 92;
    Image image;
    addResourceFolder(image, versionType, folderSize | isFolder);
    addResourceFolder(image, 1, 2 * folderSize | isFolder);
    addResourceFolder(image, 0, 3 * folderSize);
    image.add32(sectionAddress + blockOffset);
    image.add32(blockSize);
    image.add32(0); // code page
    image.add32(0);

    image.add16(blockSize);
    image.add16(52); // size of the record that follows the name
    image.add16(0);  // the record is binary
    for (char c : std::string("VS_VERSION_INFO"))
        image.add16(static_cast<uint32_t>(c));
    image.add16(0);
    image.add16(0); // the record starts at a multiple of four
    image.add32(0xFEEF04BD);
    image.add32(0x00010000);                     // version of the record's layout
    for (int copies = 0; copies < 2; ++copies) { // of the file, then of the product
        image.add32(version[0] << 16 | version[1]);
        image.add32(version[2] << 16 | version[3]);
    }
    image.add32(0x3f);
    image.add32(0);          // flags
    image.add32(0x00040004); // for Windows NT
    image.add32(2);          // a library
    for (int i = 0; i < 3; ++i)
        image.add32(0); // kind of library, date
    return image;
}

void addHeaders(Image &image, uint32_t sectionSize)
{
    image.addText("MZ");
    image.fillTo(0x3c);
    image.add32(0x40); // where the next header starts
    image.addText(std::string("PE\0\0", 4));
    image.add16(0x8664); // for 64-bit processors
    image.add16(1);      // sections
    for (int i = 0; i < 3; ++i)
        image.add32(0);  // time, symbols
    image.add16(240);    // size of the optional header
    image.add16(0x2022); // a library that can be loaded

    const size_t optionalHeader = image.size();
    image.add16(0x20b);
    image.fillTo(optionalHeader + 24);
    image.add32(0x80000000); // preferred address, lower half
    image.add32(1);
    image.add32(0x1000); // alignment in memory
    image.add32(fileAlignment);
    image.add32(6); // least system version
    image.add32(0);
    image.add32(6);
    image.add32(0);
    image.add32(sectionAddress + 0x1000); // size in memory
    image.add32(fileAlignment);           // size of the headers
    image.add32(0);                       // checksum
    image.add16(2);                       // subsystem
    image.fillTo(optionalHeader + 108);
    image.add32(16); // data directories, the third is that of the resources
    image.fillTo(optionalHeader + 112 + 16);
    image.add32(sectionAddress);
    image.add32(sectionSize);
    image.fillTo(optionalHeader + 240);

    image.addText(std::string(".rsrc\0\0\0", 8));
    image.add32(sectionSize);
    image.add32(sectionAddress);
    image.add32(fileAlignment); // size in the file
    image.add32(fileAlignment); // place in the file
    for (int i = 0; i < 3; ++i)
        image.add32(0);
    image.add32(0x40000040); // data to be read
    image.fillTo(fileAlignment);
}

} // namespace

int main(int argc, char **argv)
{
    std::array<uint32_t, 4> version = {};
    if (argc != 3 || std::sscanf(argv[2], "%u.%u.%u.%u", &version[0], &version[1], &version[2],
                                 &version[3]) != 4) {
        std::fprintf(stderr, "usage: make_version_dll FILE A.B.C.D\n");
        return 1;
    }
    for (uint32_t part : version) {
        if (part > 0xffff) {
            std::fprintf(stderr, "make_version_dll: %u does not fit into 16 bits\n", part);
            return 1;
        }
    }
    const Image section = resourceSection(version);
    Image image;
    addHeaders(image, static_cast<uint32_t>(section.size()));
    image.addText(section.bytes());
    image.fillTo(2 * fileAlignment);

    std::ofstream file(argv[1], std::ios::binary);
    file.write(image.bytes().data(), static_cast<std::streamsize>(image.size()));
    file.close();
    if (!file) {
        std::fprintf(stderr, "make_version_dll: can't write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
