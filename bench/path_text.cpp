// SPDX-License-Identifier: MIT
// How long does a device path take between text and packed form, with how many allocations, beside another
// library that formats the same bytes?
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <ovra/ovra.h>

#include "bench/allocations.h"

#ifdef COMPARE_WITH_EFIVAR
extern "C" { // its headers are C alone
#include <efivar/efivar.h>
}
#endif

namespace {

struct sample {
    const char *name;
    std::string device;
    const char *file;
};

std::string pci_chain()
{
    std::string text = "PciRoot(0x0)";
    for (int i = 0; i < 20; ++i)
        text += "/Pci(0x1,0x0)";
    return text;
}

const std::vector<sample> &samples()
{
    static constexpr char hard_drive[] = "HD(1,GPT,5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01,0x800,0x100000)";
    static const std::vector<sample> all = {
        {"sata_disk", std::string("PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)/") + hard_drive,
         "\\EFI\\BOOT\\BOOTX64.EFI"},
        {"short_form", hard_drive, "\\EFI\\BOOT\\BOOTX64.EFI"},
        {"scsi_disk", "PciRoot(0x0)/Pci(0x2,0x0)/Pci(0x0,0x0)/Scsi(0x1,0x2)", nullptr},
        {"mac_ipv4", "PciRoot(0x0)/Pci(0x3,0x0)/MAC(001122334455,1)/IPv4(192.168.0.1)", nullptr},
        {"pci_20", pci_chain(), nullptr},
    };
    return all;
}

struct library {
    library()
    {
        setenv("OVRA_TEST_FILE", "", 1);
        if (ovra_init(&hdl) != 0)
            std::abort();
    }
    ~library() { ovra_fini(hdl); }
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    ovra_hdl_t hdl = nullptr;
};

struct packed_path {
    ovra_epath_t bytes = nullptr;
    int length = 0;
};

packed_path encode(const library &lib, const sample &path)
{
    ovra_path_t instance = {const_cast<char *>(path.device.c_str()), const_cast<char *>(path.file)};
    ovra_path_t *instances[] = {&instance, nullptr};
    packed_path packed;
    if (ovra_epath_encode(lib.hdl, instances, 0, &packed.bytes, &packed.length) != 0)
        std::abort();
    return packed;
}

void count_allocations(benchmark::State &state, std::size_t before)
{
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(allocations() - before), benchmark::Counter::kAvgIterations);
}

void encode_path(benchmark::State &state, const sample &path)
{
    const library lib;
    state.SetLabel(std::to_string(path.device.size()) + " characters");
    std::free(encode(lib, path).bytes);
    const std::size_t before = allocations();
    for (auto _ : state)
        std::free(encode(lib, path).bytes);
    count_allocations(state, before);
}

void decode_path(benchmark::State &state, const sample &path)
{
    const library lib;
    const packed_path packed = encode(lib, path);
    state.SetLabel(std::to_string(packed.length) + " bytes");
    const std::size_t before = allocations();
    for (auto _ : state) {
        ovra_path_t **instances = nullptr;
        if (ovra_epath_decode_to_uefi(lib.hdl, packed.bytes, packed.length, &instances) != 0)
            std::abort();
        free_dpath(lib.hdl, instances);
    }
    count_allocations(state, before);
    std::free(packed.bytes);
}

#ifdef COMPARE_WITH_EFIVAR
// As a caller of that library does it: once for the size, once for the text.
void decode_path_other(benchmark::State &state, const sample &path)
{
    const library lib;
    const packed_path packed = encode(lib, path);
    const auto *nodes = reinterpret_cast<const_efidp>(packed.bytes);
    const std::size_t before = allocations();
    for (auto _ : state) {
        const ssize_t size = efidp_format_device_path(nullptr, 0, nodes, packed.length);
        if (size < 0) {
            state.SkipWithError("the other library refuses this path");
            break;
        }
        auto *text = static_cast<char *>(std::malloc(static_cast<std::size_t>(size)));
        if (efidp_format_device_path(text, static_cast<std::size_t>(size), nodes, packed.length) < 0)
            std::abort();
        std::free(text);
    }
    count_allocations(state, before);
    std::free(packed.bytes);
}
#endif

// Remembers the times, for the ratios at the end.
class ratio_reporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (!run.error_occurred && run.run_type == Run::RT_Iteration)
                times[run.benchmark_name()] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void print_ratios() const
    {
#ifndef COMPARE_WITH_EFIVAR
        std::printf("no ratios: built without libefivar, the library to compare with\n");
#endif
        for (const sample &path : samples()) {
            const auto ours = times.find(std::string("decode/") + path.name);
            const auto other = times.find(std::string("decode_other/") + path.name);
            if (ours != times.end() && other != times.end() && other->second > 0)
                std::printf("decode/%-12s %5.2f of the other library's time\n", path.name,
                            ours->second / other->second);
        }
    }

private:
    std::map<std::string, double> times;
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    for (const sample &path : samples()) {
        const std::string name = path.name;
        benchmark::RegisterBenchmark(("encode/" + name).c_str(), encode_path, path);
        benchmark::RegisterBenchmark(("decode/" + name).c_str(), decode_path, path);
#ifdef COMPARE_WITH_EFIVAR
        benchmark::RegisterBenchmark(("decode_other/" + name).c_str(), decode_path_other, path);
#endif
    }
    ratio_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_ratios();
    return 0;
}
