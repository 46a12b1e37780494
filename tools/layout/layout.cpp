// SPDX-License-Identifier: MIT
#include "tools/layout/layout.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>
#include <vector>

#include "tools/layout/fat.h"
#include "tools/layout/gpt.h"

namespace layout {

namespace fs = std::filesystem;

namespace {

using words_of_line = std::vector<std::string>;

words_of_line split(const std::string &line)
{
    std::istringstream stream(line);
    words_of_line words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// Where a word of a line begins.
std::size_t start_of(const std::string &text, const words_of_line &words, std::size_t wanted)
{
    std::size_t at = text.find(words[0]);
    for (std::size_t word = 1; word <= wanted; ++word)
        at = text.find(words[word], at + words[word - 1].size());
    return at;
}

// By default of blocks or bytes, with which nothing that is reckoned goes beyond 64 bits.
constexpr std::uint64_t most_blocks = std::uint64_t{1} << 48;

std::uint64_t number(const std::string &word, int base = 10, std::uint64_t most = most_blocks)
{
    std::uint64_t value = 0;
    const char *const end = word.data() + word.size();
    const auto [at, error] = std::from_chars(word.data(), end, value, base);
    if (error != std::errc() || at != end || value > most)
        throw std::runtime_error("no number, or too large a one: " + word);
    return value;
}

// "2048+4096": the first block and how many there are.
gpt_entry extent_of(const std::string &word)
{
    const std::size_t plus = word.find('+');
    if (plus == std::string::npos)
        throw std::runtime_error("no extent: " + word);
    const std::uint64_t first = number(word.substr(0, plus));
    const std::uint64_t count = number(word.substr(plus + 1));
    if (first == 0 || count == 0)
        throw std::runtime_error("no extent of a partition: " + word);
    return {0, first, first + count - 1};
}

// The words of an entry stand apart by blanks alone: a tab would become part of a name, or hide that a line
// is indented. The text of a file may have any.
void require_no_tab(const std::string &text, const words_of_line &words)
{
    const std::size_t tab = text.find('\t');
    const bool is_file = words.size() > 2 && words[0] == "file";
    if (tab != std::string::npos && (!is_file || tab < start_of(text, words, 2)))
        throw std::runtime_error("it has a tab; blanks separate words");
}

void put_bytes(const fs::path &image, std::uint64_t offset, const std::string &bytes)
{
    std::fstream stream(image, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(offset));
    stream << bytes;
    if (!stream.flush())
        throw std::runtime_error("cannot write " + image.string());
}

// The boot record of an MBR with primary entries "0c:2048+4096".
std::string make_mbr(std::uint32_t signature, const words_of_line &entries, std::uint64_t blocks)
{
    constexpr std::size_t most = 4;
    constexpr std::uint64_t most_types = 0xff;
    if (entries.size() > most)
        throw std::runtime_error("an MBR has four partitions");
    std::string record(512, '\0');
    put_number(&record, 0x1b8, signature, 4);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::size_t colon = entries[i].find(':');
        if (colon == std::string::npos)
            throw std::runtime_error("no type of a partition: " + entries[i]);
        const gpt_entry extent = extent_of(entries[i].substr(colon + 1));
        if (extent.last >= blocks || extent.last > UINT32_MAX)
            throw std::runtime_error("the partition is beyond the disk's end or an MBR's: " + entries[i]);
        const std::size_t at = 0x1be + 16 * i;
        put_number(&record, at + 4, number(entries[i].substr(0, colon), 16, most_types), 1);
        put_number(&record, at + 8, extent.first, 4);
        put_number(&record, at + 12, extent.last - extent.first + 1, 4);
    }
    put_number(&record, 510, 0xaa55, 2);
    return record;
}

class maker {
public:
    explicit maker(const fs::path &top) : root(fs::canonical(top)) {}

    // One line: a comment, or an entry. An indented one is below the folder of the last "in".
    void make(const std::string &line)
    {
        std::string text = line.substr(0, line.find(" # "));
        text.erase(text.find_last_not_of(' ') + 1);
        const bool indented = text.starts_with(' ');
        const words_of_line words = split(text);
        if (words.empty() || words[0].starts_with('#'))
            return;
        require_no_tab(text, words);
        if (words.size() < 2)
            throw std::runtime_error("it names no path");
        if (words[0] == "in") {
            folder = words[1];
            fs::create_directories(inside(folder / "."));
            return;
        }
        const fs::path path = inside(indented ? folder / words[1] : fs::path(words[1]));
        fs::create_directories(path.parent_path());
        if (words[0] == "dir")
            fs::create_directories(path);
        else if (words[0] == "file")
            put_text(path, words.size() == 2 ? "" : text.substr(start_of(text, words, 2)));
        else if (words[0] == "link")
            fs::create_symlink(arguments(words, 1)[0], path);
        else if (words[0] == "disk")
            put_disk(path, arguments(words, 1));
        else if (words[0] == "image")
            put_image(path, arguments(words, 2));
        else
            throw std::runtime_error("no kind of entry: " + words[0]);
    }

private:
    static words_of_line arguments(const words_of_line &words, std::size_t least)
    {
        constexpr std::size_t before = 2; // the kind of entry, and its path
        if (words.size() < before + least)
            throw std::runtime_error(words[0] + " wants more words");
        return {words.begin() + before, words.end()};
    }

    // Where a path leads, through links that were made before, in the machine's folder and not out of it.
    // What is there already stays.
    fs::path inside(const fs::path &path) const
    {
        const fs::path folder_of = fs::weakly_canonical(root / path.relative_path().parent_path());
        const auto [end, rest] = std::mismatch(root.begin(), root.end(), folder_of.begin(), folder_of.end());
        if (end != root.end() || path.filename() == "..")
            throw std::runtime_error("the path leads out of the machine: " + path.string());
        fs::path place = folder_of / path.filename();
        if (path.filename() != "." && fs::is_symlink(place))
            throw std::runtime_error("there is a link of this name: " + path.string());
        return place;
    }

    // The same for a path below one that inside() gave: a line further up may have put a link there.
    fs::path again_inside(const fs::path &path) const { return inside(path.lexically_relative(root)); }

    void put_text(const fs::path &path, const std::string &contents) const
    {
        const fs::path place = again_inside(path);
        fs::create_directories(place.parent_path());
        std::ofstream stream(place);
        stream << contents << '\n';
        if (!stream.flush())
            throw std::runtime_error("cannot write " + place.string());
    }

    // "sys/devices/.../block/sda 65536", with what the kernel shows of every disk: its size in units of 512
    // bytes, the size of its logical blocks, and the links to it and to its device. A virtual one has none.
    void put_disk(const fs::path &path, const words_of_line &words) const
    {
        put_text(path / "size", words[0]);
        put_text(path / "queue/logical_block_size", words.size() > 1 ? words[1] : "512");
        const bool in_block = path.parent_path().filename() == "block";
        const fs::path device = in_block ? path.parent_path().parent_path() : path.parent_path();
        if (device.filename() != "virtual")
            fs::create_symlink((in_block ? "../../../" : "../../") + device.filename().string(),
                               again_inside(path / "device"));
        const fs::path link = inside(fs::path("sys/block") / path.filename());
        fs::create_directories(link.parent_path());
        fs::create_symlink("../" + fs::relative(path, root / "sys").string(), link);
    }

    // "gpt 65536 2048+4096", "gpt/4096 ...", "mbr 65536 1234abcd 0c:2048+4096" and the like.
    void put_image(const fs::path &path, const words_of_line &words)
    {
        if (words[0] == "copy") { // of another image
            fs::copy_file(inside(words[1]), path);
            return;
        }
        const std::size_t slash = words[0].find('/');
        const std::string kind = words[0].substr(0, slash);
        const std::size_t block = block_size(slash == std::string::npos ? "512" : words[0].substr(slash + 1));
        const std::uint64_t blocks = number(words[1]);
        const words_of_line rest(words.begin() + 2, words.end());
        constexpr std::uint64_t largest_file = std::uint64_t{1} << 62;
        if (blocks > largest_file / block)
            throw std::runtime_error("the disk is too large: " + words[1]);
        constexpr std::uint64_t least_bytes = 8192; // more than any of the contents but a GPT takes
        if (blocks * block < least_bytes && !kind.starts_with("gpt"))
            throw std::runtime_error("the disk is too small: " + words[1]);
        std::ofstream(path).flush();
        fs::resize_file(path, blocks * block);
        if (kind.starts_with("gpt"))
            put_gpt(path, blocks, block, rest);
        else if (kind == "mbr")
            put_bytes(path, 0, mbr_of(rest, blocks));
        else if (kind == "fat")
            put_bytes(path, 0, make_fat(0x1234abcd, "ESP"));
        else if (kind == "data")
            put_bytes(path, 4096, "What is here has no table.");
        else if (kind != "blank")
            throw std::runtime_error("no kind of image: " + kind);
        const bool first = kind == "gpt-without-first-header" || kind == "gpt-without-headers";
        if (first)
            put_bytes(path, block + 16, "damaged");
        if (kind == "gpt-without-headers")
            put_bytes(path, (blocks - 1) * block + 16, "damaged");
    }

    static std::size_t block_size(const std::string &word)
    {
        constexpr std::uint64_t least = 512;
        constexpr std::uint64_t most = 65536;
        const std::uint64_t size = number(word);
        if (size < least || size > most || (size & (size - 1)) != 0)
            throw std::runtime_error("no size of a block: " + word);
        return size;
    }

    static std::string mbr_of(const words_of_line &words, std::uint64_t blocks)
    {
        if (words.empty())
            throw std::runtime_error("an MBR has a signature");
        return make_mbr(static_cast<std::uint32_t>(number(words[0], 16, UINT32_MAX)),
                        {words.begin() + 1, words.end()}, blocks);
    }

    void put_gpt(const fs::path &path, std::uint64_t blocks, std::size_t block, const words_of_line &extents)
    {
        constexpr std::uint64_t least_blocks = 128; // more than both tables and their headers take
        constexpr std::size_t most_entries = 128;
        if (blocks < least_blocks || extents.size() > most_entries)
            throw std::runtime_error("a disk with a GPT has at least 128 blocks and at most 128 slices");
        std::vector<gpt_entry> entries;
        for (const std::string &word : extents) {
            entries.push_back(extent_of(word));
            const std::uint64_t tables = 2 + (16384 + block - 1) / block; // at each end
            if (entries.back().first < tables || entries.back().last > blocks - tables)
                throw std::runtime_error("the slice is not between the disk's tables: " + word);
            entries.back().number = static_cast<unsigned>(entries.size());
        }
        write_gpt(path, blocks, make_gpt(blocks, entries, 128, ++images, block), block);
    }

    fs::path root;
    fs::path folder;
    std::uint64_t images = 0; // with a GPT: no two have a GUID in common
};

} // namespace

void lay_out(const std::string &text, const fs::path &root)
{
    maker files(root);
    std::istringstream entries(text);
    size_t number = 0;
    for (std::string line; std::getline(entries, line);) {
        ++number;
        try {
            files.make(line);
        } catch (const std::runtime_error &error) { // a fs::filesystem_error is one as well
            throw line_in_error(number, error.what());
        }
    }
}

} // namespace layout
