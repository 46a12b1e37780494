// SPDX-License-Identifier: MIT
#include "tools/paste/dialect.h"

#include <algorithm>

#include "src/base/ascii.h"
#include "src/base/number.h"
#include "tools/paste/reading.h"
#include "tools/text/nodevalues.h"
#include "tools/text/text.h"

namespace tool {

namespace {

// What firmware prints without exception in capitals efibootmgr prints in small letters.
class observer {
public:
    void see(const cut_text &text)
    {
        if (text.from_root)
            exclude(of_firmware | of_efibootmgr | of_old_efibootmgr);
        if (text.joined)
            found(of_old_efibootmgr);
        for (const auto &instance : text.instances) {
            for (const piece &each : instance) {
                if (each.kind == piece::node)
                    see_node(each);
                // With a bare name it may be firmware or an efibootmgr from 18 on.
                else if (each.kind == piece::file && each.place.end - each.place.begin != each.text.size())
                    exclude(of_firmware);
            }
        }
    }

    style seen() const
    {
        style all;
        all.possible = any_dialect & ~excluded;
        all.likely = likely & all.possible;
        if (!may_be_old && !(all.likely & of_old_efibootmgr)) // it is like no other
            all.possible &= ~of_old_efibootmgr;
        if (all.possible == 0)
            all.possible = any_dialect & ~of_old_efibootmgr;
        return all;
    }

private:
    void exclude(dialects which) { excluded |= which; }
    // What no other dialect has.
    void found(dialects which)
    {
        likely |= which;
        exclude(any_dialect & ~which);
    }

    void see_digits(std::string_view digits)
    {
        for (const char c : digits) {
            if (c >= 'A' && c <= 'F') {
                exclude(of_efibootmgr | of_old_efibootmgr);
                likely |= of_firmware;
            } else if (c >= 'a' && c <= 'f') {
                exclude(of_firmware);
            }
        }
    }

    // Of a number that firmware prints in hexadecimal and efibootmgr in decimal digits.
    void see_base(std::string_view number)
    {
        if (has_prefix(number))
            exclude(of_efibootmgr);
        else if (number_in(number))
            exclude(of_firmware);
    }

    void see_letters(const node_fields &fields)
    {
        if (index_of(fields.name, {"Uri", "Wi-Fi"})) // whose text is the user's
            return;
        const bool has_data = index_of(fields.name, {"MAC", "VenHw", "VenMsg", "VenMedia", "HardwarePath",
                                                     "AcpiPath", "Msg", "MediaPath", "BbsPath"})
                                  .has_value();
        const bool is_text = index_of(fields.name, {"BBS", "iSCSI", "AcpiEx"}).has_value();
        if (fields.is("NVMe") && fields.count() == 2 &&
            std::any_of(fields.values[1].begin(), fields.values[1].end(), [](char c) { return c >= 'a'; }))
            exclude(of_firmware); // efibootmgr has capitals there too
        for (const std::string_view value : fields.values) {
            if (has_prefix(value)) {
                see_digits(value.substr(2));
                exclude(of_old_efibootmgr); // whose numbers are all hexadecimal
            } else if (is_guid(value) || (has_data && is_of_kind("bytes", std::string(value))))
                see_digits(value);
            // Names of values stand in ovra's texts alone.
            else if (!is_text && value.find('=') != std::string_view::npos)
                exclude(any_dialect & ~of_ovra);
        }
    }

    void see_numbers(const node_fields &fields)
    {
        const auto &values = fields.values;
        if (index_of(fields.name, {"Sata", "USB", "SCSI", "I2O", "Unit", "SD", "eMMC"}))
            std::for_each(values.begin(), values.end(), [this](auto value) { see_base(value); });
        else if (index_of(fields.name, {"UFS", "MemoryMapped", "BMC", "BBS"}))
            see_base(values.front());
        else if (index_of(fields.name, {"MAC", "iSCSI"}) && values.size() > 1)
            see_base(values[1]);
        else if (fields.is("Pci") && fields.arguments.find('|') != std::string::npos)
            found(of_firmware);
        else if (index_of(fields.name, {"Pci", "PcCard", "Ctrl", "Offset", "AcpiAdr"}) &&
                 !std::all_of(values.begin(), values.end(), has_prefix))
            exclude(of_firmware | of_efibootmgr); // both print all of them in hexadecimal
        else if (fields.is("Ata") && values.size() == 3)
            exclude(number_in(values.front()) ? of_firmware : of_efibootmgr);
    }

    // Without the kind of the table the blocks are hexadecimal, but digits may look decimal.
    void see_blocks(const node_fields &fields)
    {
        const auto looks_decimal = [](std::string_view text) { return number_in(text) && !has_prefix(text); };
        may_be_old = true;
        if (!std::all_of(fields.values.begin(), fields.values.begin() + 3, looks_decimal))
            found(of_old_efibootmgr);
    }

    void see_words(const node_fields &fields)
    {
        const auto is_exactly = [&](std::initializer_list<std::string_view> names) {
            return std::find(names.begin(), names.end(), fields.name) != names.end();
        };
        const std::string_view first = fields.values.front();
        if (is_exactly({"PCI"})) { // which people may type in capitals too
            may_be_old = true;
            exclude(of_firmware | of_efibootmgr);
        }
        if (is_exactly({"ACPI", "ATAPI", "PCCARD", "BIOS", "CD-ROM", "Vendor", "Controller"}))
            found(of_old_efibootmgr);
        if (fields.is("HD") && fields.count() == 4 && is_guid(fields.values[3]))
            see_blocks(fields);
        if (is_exactly({"SCSI", "FvVol", "UartFlowControl"}))
            likely |= of_efibootmgr;
        if (is_exactly({"Scsi", "Fv"}))
            exclude(of_efibootmgr);
        if (is_exactly({"SCSI", "FvVol", "UartFlowControl", "Ramdisk"}))
            exclude(of_firmware);
        if (fields.is("IPv6") && first.size() == 39)
            found(of_firmware);
        if ((fields.is("IPv6") && first.starts_with('[')) ||
            (fields.is("IPv4") && std::count(first.begin(), first.end(), '.') > 3))
            exclude(of_firmware);
    }

    void see_node(const piece &node)
    {
        const std::string arguments = node.arguments();
        const node_fields fields = {node.name(), arguments, parts_of(arguments, ','), {}};
        see_letters(fields);
        see_numbers(fields);
        see_words(fields);
    }

    bool may_be_old = false;
    dialects excluded = 0;
    dialects likely = 0;
};

} // namespace

style style_of(const cut_text &text)
{
    observer all;
    all.see(text);
    return all.seen();
}

std::string names_of_dialects(dialects which)
{
    static constexpr const char *names[] = {"ovra", "firmware", "efibootmgr", "an old efibootmgr"};
    std::vector<std::string> words;
    for (size_t at = 0; at < std::size(each_dialect); ++at) {
        if (which & each_dialect[at])
            words.emplace_back(names[at]);
    }
    return join(words, " or ");
}

} // namespace tool
