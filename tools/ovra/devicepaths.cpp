#include "tools/ovra/devicepaths.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <strings.h>

#include "tools/ovra/capture.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/loadoption.h"

namespace tool {

namespace {

constexpr const char *test_files = "OVRA_TEST_FILE";

struct text_range {
    size_t begin = 0;
    size_t end = 0;
};

// Where the nodes of a text stand, split as the library splits it: a run of slashes counts as one, and one
// more at the very end leaves an empty node.
std::vector<text_range> nodes_of(const std::string &text)
{
    std::vector<text_range> nodes;
    for (size_t at = 0; at < text.size();) {
        const size_t begin = std::min(text.find_first_not_of('/', at), text.size());
        const size_t end = std::min(text.find('/', begin), text.size());
        nodes.push_back({begin, end});
        at = end + 1;
    }
    return nodes;
}

// The number that an accepted node text gives as an argument, by its name or at its place; 0 if it does not.
unsigned long long argument(const std::string &node, const std::string &name, size_t place)
{
    const size_t open = node.find('(') + 1;
    const std::string text = node.substr(open, node.rfind(')') - open);
    for (size_t at = 0, begin = 0; begin <= text.size(); ++at) {
        const size_t end = std::min(text.find(',', begin), text.size());
        const std::string field = text.substr(begin, end - begin);
        const size_t equals = field.find('=');
        if (equals == std::string::npos ? at == place && !field.empty()
                                        : strcasecmp(field.substr(0, equals).c_str(), name.c_str()) == 0)
            return strtoull(field.c_str() + (equals == std::string::npos ? 0 : equals + 1), nullptr, 0);
        begin = end + 1;
    }
    return 0;
}

// The library cuts the length of a name that is too long for a node to the 16 bits that a node has for it.
void require_room_for(const std::optional<std::string> &file)
{
    constexpr size_t most = (UINT16_MAX - sizeof(uefi_device_path_t)) / sizeof(CHAR16) - 1;
    constexpr size_t shown = 40;
    const auto name = to_ucs2(file.value_or(""));
    if (name && name->size() - 1 > most)
        throw failure("the file " + in_quotes(to_utf8(std::span(*name).first(shown)) + "...") +
                          " cannot be packed",
                      format("It has %zu characters; a node holds %zu.", name->size() - 1, most));
}

} // namespace

device_paths::device_paths()
{
    // A handle opens the firmware unless the library is told to use test files. Paths need neither, and must
    // work where there is no firmware: the variable exists only while the handle is made.
    const bool was_set = getenv(test_files) != nullptr;
    if (!was_set)
        setenv(test_files, "", 1);
    const int result = call([this] { return ovra_init(&handle); });
    if (!was_set)
        unsetenv(test_files);
    if (result != 0)
        throw std::bad_alloc();
}

device_paths::~device_paths()
{
    ovra_fini(handle);
}

int device_paths::call(const std::function<int()> &function)
{
    error_capture capture;
    const int result = function();
    messages = capture.errors;
    return result;
}

std::optional<bytes> device_paths::try_encode(const std::string &device,
                                              const std::optional<std::string> &file, int flags)
{
    std::string device_text = device;
    std::string file_text = file.value_or("");
    ovra_path_t instance = {device_text.data(), file ? file_text.data() : nullptr};
    ovra_path_t *paths[] = {&instance, nullptr};
    ovra_epath_t packed = nullptr;
    int size = 0;
    const int result = call([&] { return ovra_epath_encode(handle, paths, flags, &packed, &size); });
    if (result != 0 || !packed)
        return std::nullopt;
    bytes path(packed, packed + size);
    memlist_free(handle, packed); // of a text the block is not the handle's, and is just freed
    return path;
}

bytes device_paths::encode(const std::string &device, const std::optional<std::string> &file)
{
    require_room_for(file);
    const auto path = try_encode(device, file, 0);
    if (!path)
        point_at_failure(device, file);
    warn_of_lost_ports(device);
    return *path;
}

bytes device_paths::encode_disk(const std::string &disk, const std::optional<std::string> &file, bool full)
{
    require_room_for(file);
    const auto path = try_encode(disk, file, full ? 1 : 0);
    if (!path)
        throw failure("cannot make a path to the disk " + in_quotes(disk), "'ovra disks' shows the disks.",
                      messages);
    return *path;
}

void device_paths::point_at_failure(const std::string &text, const std::optional<std::string> &file)
{
    const std::string said = messages;
    const std::vector<text_range> nodes = nodes_of(text);
    // A text that names a device of the operating system has no nodes.
    const bool is_name = text.starts_with("/dev/") || text.starts_with("/devices/") ||
                         (text.size() > 1 && text[0] == 'c' && text[1] >= '0' && text[1] <= '9');
    for (size_t at = 0; !is_name && at < nodes.size(); ++at) {
        const auto [begin, end] = nodes[at];
        // An empty node is what a second slash makes.
        const std::string node = end > begin ? '/' + text.substr(begin, end - begin) : "//";
        if (try_encode(node, std::nullopt, 0))
            continue;
        const std::string mark(std::max<size_t>(columns(printable(text.substr(begin, end - begin))), 1), '^');
        throw failure(format("node %zu of the path cannot be packed: ", at + 1) +
                          (end > begin ? in_quotes(text.substr(begin, end - begin)) : "it is empty"),
                      printable(text) + '\n' + std::string(columns(printable(text.substr(0, begin))), ' ') +
                          mark,
                      messages);
    }
    if (!is_name && file)
        throw failure("the file " + in_quotes(*file) + " cannot be packed", {}, said);
    throw failure("the path " + in_quotes(text) + " cannot be packed", {}, said);
}

// The encoder stores the LUN of a Sata node in place of its port.
void device_paths::warn_of_lost_ports(const std::string &text)
{
    for (const auto [begin, end] : nodes_of(text)) {
        const std::string node = text.substr(begin, end - begin);
        if (strncasecmp(node.c_str(), "Sata(", 5) != 0)
            continue;
        const auto packed = try_encode('/' + node, std::nullopt, 0);
        const std::string stored = packed ? decode(*packed).instances.at(0).device : "";
        if (stored == format("/Sata(0x%llx,0x%llx,0x%llx)", argument(node, "HPN", 0),
                             argument(node, "PMPN", 1), argument(node, "LUN", 2)))
            continue;
        warn(printable(node) + " is packed as " + stored.substr(1),
             "Text cannot give the port of such a disk; 'ovra create' with --disk and --full, or with "
             "--path-hex, can.");
    }
}

decoded_path device_paths::decode(byte_view path)
{
    bytes copy(path.begin(), path.end());
    ovra_path_t **paths = nullptr;
    decoded_path result;
    const int status = call([&] {
        return ovra_epath_decode_to_uefi(handle, copy.data(), static_cast<int>(copy.size()), &paths);
    });
    if (status != 0) {
        result.error = path_error(path).value_or("it has a node of a type that has no text");
        result.messages = messages;
        return result;
    }
    if (!paths) {
        result.error = path.empty() ? "it is empty" : path_error(path).value_or("it has no END node");
        return result;
    }
    for (ovra_path_t **instance = paths; *instance; ++instance) {
        path_text text;
        if ((*instance)->device_path)
            text.device = (*instance)->device_path;
        if ((*instance)->file_path)
            text.file = (*instance)->file_path;
        result.instances.push_back(std::move(text));
    }
    free_dpath(handle, paths);
    result.bytes_behind_end = bytes_behind_end(path);
    return result;
}

void warn(const std::string &what, const std::string &advice)
{
    fprintf(stderr, "ovra: warning: %s\n", what.c_str());
    if (!advice.empty())
        fprintf(stderr, "  %s\n", advice.c_str());
}

json as_json(const decoded_path &path)
{
    if (!path.error.empty())
        return {{"instances", nullptr}, {"path_error", path.error}};
    json instances = json::array();
    for (const path_text &instance : path.instances)
        instances.push_back({{"devicePath", instance.device},
                             {"filePath", instance.file ? json(*instance.file) : json(nullptr)}});
    return {{"instances", std::move(instances)}};
}

std::vector<std::vector<std::string>> as_rows(const decoded_path &path)
{
    if (!path.error.empty())
        return {{"Device path", "(has no text: " + path.error + ")"}};
    std::vector<std::vector<std::string>> rows;
    for (const path_text &instance : path.instances) {
        rows.push_back({"Device path", instance.device.empty() ? "none" : printable(instance.device)});
        if (instance.file)
            rows.push_back({"File path", printable(*instance.file)});
    }
    return rows;
}

} // namespace tool
