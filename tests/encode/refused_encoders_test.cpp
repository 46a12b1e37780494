// SPDX-License-Identifier: MIT
// Refused allocations in the encoders: each says which one it was, returns -1 and leaves nothing behind.
#include <string>

#include <gtest/gtest.h>

#include "tests/encode/positional.h"
#include "tests/encode/refused.h"
#include "tests/support/messages.h"

using namespace ovra::test;

namespace {

struct encoder_case {
    const char *text;
    texts wanted;
};

#define A_GUID "e0c14753-f9be-11d2-9a0c-0090273fc14d"

const encoder_case encoders[] = {
    {"Path(1,1,0600071f)", {hexdump, "unable to allocate dpath\n"}},
    {"HardwarePath(1,0600071f)", {hexdump, "unable to allocate dpath\n"}},
    {"Pci(1,2)", {"unable to allocate pci_dpath\n"}},
    {"pcCard(1)", {"unable to allocate pccard\n"}},
    {"VenHw(" A_GUID ",00)", {hexdump, "unable to allocate venhw dpath\n"}},
    {"Ctrl(1)", {"unable to allocate controller dpath\n"}},
    {"AcpiPath(1,0600071f)", {hexdump, "unable to allocate dpath\n"}},
    {"AcpiEx(PNP0A03,0)", {"unable to allocate acpi dpath\n"}},
    {"AcpiEx(0,0,0,a,b,c)", {"unable to allocate acpie dpath\n"}},
    {"AcpiExp(PNP0A03,0)", {"unable to allocate acpie dpath\n"}},
    {"AcpiAdr(1,2)", {"Unable to allocate arg_str\n", "unable to allocate acpi_adr dpath\n"}},
    {"MessagingPath(1,0600071f)", {hexdump, "unable to allocate dpath\n"}},
    {"Ata(0,0,0)", {"unable to allocate ata dpath\n"}},
    {"Scsi(0,0)", {"unable to allocate scsi dpath\n"}},
    {"Fibre(0,0)", {"unable to allocate fibre dpath\n"}},
    {"FibreEx(0102030405060708,0102030405060708)", {hexdump, "unable to allocate fibreex dpath\n"}},
    {"I1394(0102030405060708)", {hexdump, "unable to allocate i1394 dpath\n"}},
    {"USB(1,2)", {"unable to allocate usb_dpath\n"}},
    {"I2O(1)", {"unable to allocate i2o dpath\n"}},
    {"Infiniband(0,000102030405060708090a0b0c0d0e0f,0,0,0)",
     {hexdump, "unable to allocate infiniband dpath\n"}},
    {"VenMsg(" A_GUID ",00)", {hexdump, "unable to allocate venmsg dpath\n"}},
    {"VenPcAnsi()", {"unable to allocate uart ansi dpath\n"}},
    {"VenVt100()", {"unable to allocate uart vt100 dpath\n"}},
    {"VenVt100Plus()", {"unable to allocate uart 100plus dpath\n"}},
    {"UartFlowCtrl(None)", {"unable to allocate uart flow dpath\n"}},
    {"SAS(0,0,0,SAS,0,0,0,0)", {"unable to allocate sas_msg dpath\n"}},
    {"SasEx(0,0,0,SAS,0,0,1)", {"unable to allocate sas_ex dpath\n"}},
    {"DebugPort()", {"unable to allocate uart debugport dpath\n"}},
    {"MAC(001122334455,1)", {hexdump, "unable to allocate macaddr dpath\n"}},
    {"IPv4(1.2.3.4,TCP,1,1.2.3.4,1.2.3.4,255.0.0.0)", {"unable to allocate ipv4 dpath\n"}},
    {"IPv6(::1,TCP,1,::1)", {"unable to allocate ipv6 dpath\n"}},
    {"Uart(9600,8,N,1)", {"unable to allocate uart dpath\n"}},
    {"UsbClass(1,2,3,4,5)", {"unable to allocate usb_class dpath\n"}},
    {"UsbAudio(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbCDCControl(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbHID(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbImage(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbPrinter(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbMassStorage(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbHub(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbCDCData(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbSmartCard(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbVideo(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbDiagnostic(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbWireless(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbDeviceFirmwareUpdate(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbIrdaBridge(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbTestAndMeasurement(1,2,3,4)", {"unable to allocate usb_class dpath\n"}},
    {"UsbWwid(1,2,3,A)",
     {"unable to convert WWID description string to UCS-2\n", "unable to allocate usb_wwid dpath\n"}},
    {"Unit(1)", {"unable to allocate lun dpath\n"}},
    {"Sata(1,2,3)", {"unable to allocate sata dpath\n"}},
    {"iSCSI(iqn.x,1,0000000000000001)",
     {"unable to convert description string to UCS-2\n", "unable to allocate iscsi dpath\n", hexdump}},
    {"Vlan(1)", {"unable to allocate vlan dpath\n"}},
    {"MediaPath(1,0600071f)", {hexdump, "unable to allocate dpath\n"}},
    {"HD(1,GPT," A_GUID ",1,1)", {"unable to allocate hd_dpath\n"}},
    {"CDROM(,1,1)", {"unable to allocate cdrom dpath\n"}},
    {"VenMedia(" A_GUID ",00)", {hexdump, "unable to allocate venmedia dpath\n"}},
    {"Media(" A_GUID ")", {"unable to allocate media_protocol path\n"}},
    {"BbsPath(1,0600071f)", {hexdump, "unable to allocate dpath\n"}},
    {"BBS(HD,x,0)", {"unable to allocate bbs path\n"}},
};

// Messages that are kept although they name another kind, or are misspelt.
const encoder_case kept_another_kind[] = {
    {"VenUtf8()", {"unable to allocate uart 100plus dpath\n"}},
    {"Offset(1,2)", {"unable to allocate media_protocol path\n"}},
};
const encoder_case kept_apci[] = {
    {"Acpi(PNP0A03,0)", {"unable to allocate apci_dpath\n"}},
    {"PciRoot(0)", {"unable to allocate apci_dpath\n"}},
    {"PcieRoot(0)", {"unable to allocate apci_dpath\n"}},
    {"Floppy(0)", {"unable to allocate apci_dpath\n"}},
    {"Keyboard(0)", {"unable to allocate apci_dpath\n"}},
    {"Serial(0)", {"unable to allocate apci_dpath\n"}},
    {"ParallelPort(0)", {"unable to allocate apci_dpath\n"}},
};
const encoder_case kept_memap = {"MemoryMapped(1,2,3)", {"unable to allocate memap_dpath\n"}};

// The encoder of a text's node, with what is to be looked at of each attempt.
template <typename check_t>
void sweep_node(const made_arguments &args, const check_t &check)
{
    auto *untouched = reinterpret_cast<uefi_device_path_t *>(args.list.get());
    for_each_refused_allocation(
        [&](ovra_hdl_t) {
            uefi_device_path_t *node = untouched;
            const int result = args.row->opt_encode_fcn(args.list.get(), &node);
            if (result == 0)
                free(node);
            else
                EXPECT_EQ(node, untouched);
            return result;
        },
        check);
}

void sweep_encoder(const encoder_case &one)
{
    SCOPED_TRACE(one.text);
    const made_arguments args(one.text);
    ASSERT_TRUE(args.row);
    ASSERT_TRUE(args.list);
    expected_messages messages{one.wanted};
    sweep_node(args, [&](const attempt &attempt) { messages.look(attempt); });
    EXPECT_EQ(messages.seen, one.wanted);
}

} // namespace

TEST(refused_allocation, each_encoder)
{
    for (const encoder_case &one : encoders)
        sweep_encoder(one);
}

// With the first allocation refused and an argument that is wrong: what is met first is what is said.
TEST(refused_allocation, comes_before_the_arguments_are_read_or_behind)
{
    struct order_case {
        const char *text;
        const char *said;
        long refused;
    };
    const order_case cases[] = {
        {"I2O(x)", "unable to allocate i2o dpath\n", 1},
        {"I1394(x)", "unable to allocate i1394 dpath\n", 1},
        {"Infiniband(x)", "unable to allocate infiniband dpath\n", 1},
        {"Unit()", "unable to allocate lun dpath\n", 1},
        {"Vlan(x)", "unable to allocate vlan dpath\n", 1},
        {"Sata()", "unable to allocate sata dpath\n", 1},
        {"SAS()", "unable to allocate sas_msg dpath\n", 1},
        {"SasEx()", "unable to allocate sas_ex dpath\n", 1},
        {"IPv4()", "unable to allocate ipv4 dpath\n", 1},
        {"IPv6()", "unable to allocate ipv6 dpath\n", 1},
        {"UsbClass(x)", "unable to allocate usb_class dpath\n", 1},
        {"UsbHID(x)", "unable to allocate usb_class dpath\n", 1},
        {"UsbIrdaBridge(x)", "unable to allocate usb_class dpath\n", 1},
        {"HD(x)", "unable to allocate hd_dpath\n", 1},
        {"CDROM(0)", "unable to allocate cdrom dpath\n", 1},
        {"FibreEx(x,y)", "encode_arg_hexdump: val_str needs to be multiple of 2\n", 0},
        {"Ata(x,0,0)", "strtoull has endptr: arg_name: Controller value: x: end_ptr:x\n", 0},
        {"Scsi(x,0)", "strtoull has endptr: arg_name: Pun value: x: end_ptr:x\n", 0},
        {"Fibre(x,0)", "strtoull has endptr: arg_name: WWN value: x: end_ptr:x\n", 0},
    };
    for (const order_case &one : cases) {
        SCOPED_TRACE(one.text);
        const made_arguments args(one.text);
        ASSERT_TRUE(args.list);
        auto *const untouched = reinterpret_cast<uefi_device_path_t *>(args.list.get());
        uefi_device_path_t *node = untouched;
        const messages said(1, 0);
        refuse_from(0, false);
        const int result = args.row->opt_encode_fcn(args.list.get(), &node);
        EXPECT_EQ(stop_refusing(), one.refused);
        EXPECT_EQ(result, -1);
        EXPECT_EQ(node, untouched);
        EXPECT_EQ(said.text(), one.said);
    }
}

TEST(refused_allocation, no_encoder_is_left_out)
{
    texts covered;
    const auto cover = [&](const encoder_case &one) {
        const std::string text = one.text;
        covered.insert(text.substr(0, text.find('(')));
    };
    for (const encoder_case &one : encoders)
        cover(one);
    for (const encoder_case &one : kept_another_kind)
        cover(one);
    for (const encoder_case &one : kept_apci)
        cover(one);
    cover(kept_memap);
    texts keywords;
    for (const columns &row : read_table("encode_keywords.tsv", 1))
        keywords.insert(row[0]);
    EXPECT_EQ(covered, keywords);
}

// Whatever the words: what could not be had is told. This is all that a keyword after those above needs.
TEST(refused_allocation, each_positional_row_is_told)
{
    size_t told = 0;
    for (const positional_row &row : positional_rows()) {
        SCOPED_TRACE(row.text);
        const made_arguments args(row.text);
        ASSERT_TRUE(args.list);
        sweep_node(args, [&](const attempt &attempt) {
            if (attempt.refused == 0)
                return;
            ++told;
            EXPECT_TRUE(attempt.messages.ends_with('\n')) << attempt.messages;
        });
    }
    EXPECT_GT(told, 40U);
}

TEST(refused_allocation, kept_venutf8_speaks_of_vt100plus)
{
    sweep_encoder(kept_another_kind[0]);
}

TEST(refused_allocation, kept_offset_speaks_of_media)
{
    sweep_encoder(kept_another_kind[1]);
}

TEST(refused_allocation, kept_apci_spelling)
{
    for (const encoder_case &one : kept_apci)
        sweep_encoder(one);
}

TEST(refused_allocation, kept_memap_spelling)
{
    sweep_encoder(kept_memap);
}
