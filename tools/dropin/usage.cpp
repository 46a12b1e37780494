// SPDX-License-Identifier: MIT
#include "tools/dropin/settings.h"
#include "tools/text/output.h"

namespace tool::dropin {

void print_usage()
{
    print("efibootmgr version 17\n"
          "usage: efibootmgr [options]\n"
          "This is ovra, which takes the options of efibootmgr 17; 'ovra --help' shows its own.\n"
          "\t-a | --active         firmware boots the option that -b names\n"
          "\t-A | --inactive       firmware does not boot it by itself\n"
          "\t-b | --bootnum XXXX   the number of an option, hexadecimal\n"
          "\t-B | --delete-bootnum delete it\n"
          "\t-c | --create         make an option, first in the order\n"
          "\t-C | --create-only    make an option that is not in the order\n"
          "\t-D | --remove-dups    leave each option in the order once\n"
          "\t-d | --disk DISK      the disk with the loader (/dev/sda)\n"
          "\t-e | --edd30 1|3|-1   a path by BIOS number, by hardware, or short\n"
          "\t-E | --edd-device NUM the BIOS number, hexadecimal (80)\n"
          "\t-g | --gpt            taken, as a GPT is read in any case\n"
          "\t-i | --iface NAME     an option that boots over this network interface\n"
          "\t-l | --loader FILE    (\\EFI\\debian\\grub.efi)\n"
          "\t-L | --label TEXT     the description (Linux)\n"
          "\t-m | --mirror-below-4G t|f  mirror memory below 4 GiB\n"
          "\t-M | --mirror-above-4G X    percentage of the memory above to mirror, up to 50\n"
          "\t-n | --bootnext XXXX  boot this option once\n"
          "\t-N | --delete-bootnext\n"
          "\t-o | --bootorder XXXX,YYYY,...  the order, hexadecimal\n"
          "\t-O | --delete-bootorder\n"
          "\t-p | --part PART      the partition with the loader (1)\n"
          "\t-q | --quiet          print no list\n"
          "\t-r | --driver         Driver#### instead of Boot####\n"
          "\t-t | --timeout SECONDS  how long the firmware's menu waits\n"
          "\t-T | --delete-timeout\n"
          "\t-u | --unicode | --UCS-2  words behind the options are stored as UCS-2\n"
          "\t-v | --verbose        also device paths and optional data\n"
          "\t-V | --version\n"
          "\t-w | --write-signature  taken, and does nothing: write one with fdisk\n"
          "\t-y | --sysprep        SysPrep#### instead of Boot####\n"
          "\t-@ | --append-binary-args FILE  optional data, - for standard input\n"
          "\t-h | --help\n");
}

} // namespace tool::dropin
