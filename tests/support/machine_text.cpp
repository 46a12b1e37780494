// SPDX-License-Identifier: MIT
#include "tests/support/machine_text.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/filesystems.h"
#include "tests/support/gpt.h"

namespace ovra::test {

namespace fs = std::filesystem;

namespace {

constexpr const char *section_mark = "== ";

machine_text read_machine(const fs::path &file)
{
    machine_text machine = {file.stem(), file, {}, {}};
    std::ifstream stream(file);
    std::string *to = &machine.entries;
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with(section_mark))
            to = &machine.expected[line.substr(3)];
        else
            *to += line + '\n';
    }
    return machine;
}

std::vector<std::string> split(const std::string &line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// "2048+4096": the first block and how many there are.
gpt_entry extent_of(const std::string &word)
{
    const std::size_t plus = word.find('+');
    if (plus == std::string::npos)
        throw std::runtime_error("no extent: " + word);
    const std::uint64_t first = std::stoull(word.substr(0, plus));
    return {0, first, first + std::stoull(word.substr(plus + 1)) - 1};
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
std::string make_mbr(std::uint32_t signature, const std::vector<std::string> &entries)
{
    std::string record(512, '\0');
    put_number(&record, 0x1b8, signature, 4);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::size_t colon = entries[i].find(':');
        const gpt_entry extent = extent_of(entries[i].substr(colon + 1));
        const std::size_t at = 0x1be + 16 * i;
        put_number(&record, at + 4, std::stoul(entries[i].substr(0, colon), nullptr, 16), 1);
        put_number(&record, at + 8, extent.first, 4);
        put_number(&record, at + 12, extent.last - extent.first + 1, 4);
    }
    put_number(&record, 510, 0xaa55, 2);
    return record;
}

class maker {
public:
    explicit maker(fs::path top) : root(std::move(top)) {}

    // One line: a comment, or an entry. An indented one is below the folder of the last "in".
    void make(const std::string &line)
    {
        std::string text = line.substr(0, line.find(" # "));
        text.erase(text.find_last_not_of(' ') + 1);
        const bool indented = text.starts_with(' ');
        const std::vector<std::string> words = split(text);
        if (words.empty() || words[0].starts_with('#'))
            return;
        if (words.size() < 2)
            throw std::runtime_error("no path: " + line);
        if (words[0] == "in") {
            folder = words[1];
            fs::create_directories(root / folder);
            return;
        }
        const fs::path path = indented ? root / folder / words[1] : root / words[1];
        fs::create_directories(path.parent_path());
        if (words[0] == "dir")
            fs::create_directories(path);
        else if (words[0] == "file")
            put_text(path, words.size() == 2
                               ? ""
                               : text.substr(text.find(words[2], text.find(words[1]) + words[1].size())));
        else if (words[0] == "link")
            fs::create_symlink(words.at(2), path);
        else if (words[0] == "disk")
            put_disk(path, {words.begin() + 2, words.end()});
        else if (words[0] == "image")
            put_image(path, {words.begin() + 2, words.end()});
        else
            throw std::runtime_error("no kind of entry: " + line);
    }

private:
    static void put_text(const fs::path &path, const std::string &contents)
    {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << contents << '\n';
    }

    // "sys/devices/.../block/sda 65536", with what the kernel shows of every disk: its size in units of 512
    // bytes, the size of its logical blocks, and the links to it and to its device. A virtual one has none.
    void put_disk(const fs::path &path, const std::vector<std::string> &words) const
    {
        put_text(path / "size", words.at(0));
        put_text(path / "queue/logical_block_size", words.size() > 1 ? words[1] : "512");
        const bool in_block = path.parent_path().filename() == "block";
        const fs::path device = in_block ? path.parent_path().parent_path() : path.parent_path();
        if (device.filename() != "virtual")
            fs::create_symlink((in_block ? "../../../" : "../../") + device.filename().string(),
                               path / "device");
        fs::create_directories(root / "sys/block");
        fs::create_symlink("../" + fs::relative(path, root / "sys").string(),
                           root / "sys/block" / path.filename());
    }

    // "gpt 65536 2048+4096", "gpt/4096 ...", "mbr 65536 1234abcd 0c:2048+4096" and the like.
    void put_image(const fs::path &path, const std::vector<std::string> &words)
    {
        if (words.at(0) == "copy") { // of another image
            fs::copy_file(root / words.at(1), path);
            return;
        }
        const std::size_t slash = words[0].find('/');
        const std::string kind = words[0].substr(0, slash);
        const std::size_t block = slash == std::string::npos ? 512 : std::stoul(words[0].substr(slash + 1));
        const std::uint64_t blocks = std::stoull(words.at(1));
        const std::vector<std::string> rest(words.begin() + 2, words.end());
        std::ofstream(path).flush();
        fs::resize_file(path, blocks * block);
        if (kind.starts_with("gpt"))
            put_gpt(path, blocks, block, rest);
        else if (kind == "mbr")
            put_bytes(path, 0,
                      make_mbr(static_cast<std::uint32_t>(std::stoul(rest.at(0), nullptr, 16)),
                               {rest.begin() + 1, rest.end()}));
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

    void put_gpt(const fs::path &path, std::uint64_t blocks, std::size_t block,
                 const std::vector<std::string> &extents)
    {
        std::vector<gpt_entry> entries;
        for (const std::string &word : extents) {
            entries.push_back(extent_of(word));
            entries.back().number = static_cast<unsigned>(entries.size());
        }
        write_gpt(path, blocks, make_gpt(blocks, entries, 128, ++images, block), block);
    }

    fs::path root;
    fs::path folder;
    std::uint64_t images = 0; // with a GPT: no two have a GUID in common
};

} // namespace

const std::vector<machine_text> &machine_texts()
{
    static const std::vector<machine_text> all = [] {
        std::vector<machine_text> found;
        for (const auto &entry : fs::directory_iterator(OVRA_MACHINE_TEXTS)) {
            if (entry.path().extension() == ".machine")
                found.push_back(read_machine(entry.path()));
        }
        if (found.empty())
            throw std::runtime_error("no machines in " OVRA_MACHINE_TEXTS);
        std::sort(found.begin(), found.end(), [](const auto &a, const auto &b) { return a.name < b.name; });
        return found;
    }();
    return all;
}

void lay_out(const machine_text &machine, const fs::path &root)
{
    maker files(root);
    std::istringstream entries(machine.entries);
    for (std::string line; std::getline(entries, line);)
        files.make(line);
}

std::vector<std::vector<std::string>> words_of_lines(const std::string &section)
{
    std::vector<std::vector<std::string>> lines;
    std::istringstream stream(section);
    for (std::string line; std::getline(stream, line);) {
        if (auto words = split(line); !words.empty())
            lines.push_back(std::move(words));
    }
    return lines;
}

} // namespace ovra::test
