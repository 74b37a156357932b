// SPDX-License-Identifier: MIT
// The names that stand in security text for numbers and for well-known SIDs.
#pragma once

#include <cstdint>

#include "platform/Text.h"

namespace security {

struct NamedBits {
    platform::WStringView name;
    uint32_t bits;
};

inline constexpr NamedBits kAceTypes[] = {
    {WTEXT("A"), 0}, {WTEXT("D"), 1}, {WTEXT("AU"), 2}, {WTEXT("AL"), 3}, {WTEXT("ML"), 0x11},
};

inline constexpr NamedBits kAceFlags[] = {
    {WTEXT("OI"), 0x01}, {WTEXT("CI"), 0x02}, {WTEXT("NP"), 0x04}, {WTEXT("IO"), 0x08},
    {WTEXT("ID"), 0x10}, {WTEXT("SA"), 0x40}, {WTEXT("FA"), 0x80},
};

// Rights that stand for several bits; written only where they fit exactly, the first one first.
inline constexpr NamedBits kCombinedRights[] = {
    {WTEXT("KA"), 0x000F003F}, {WTEXT("KR"), 0x00020019}, {WTEXT("KW"), 0x00020006},
    {WTEXT("KX"), 0x00020019}, {WTEXT("FA"), 0x001F01FF}, {WTEXT("FR"), 0x00120089},
    {WTEXT("FW"), 0x00120116}, {WTEXT("FX"), 0x001200A0},
};

inline constexpr NamedBits kSingleRights[] = {
    {WTEXT("CC"), 0x00000001}, {WTEXT("DC"), 0x00000002}, {WTEXT("LC"), 0x00000004},
    {WTEXT("SW"), 0x00000008}, {WTEXT("RP"), 0x00000010}, {WTEXT("WP"), 0x00000020},
    {WTEXT("DT"), 0x00000040}, {WTEXT("LO"), 0x00000080}, {WTEXT("CR"), 0x00000100},
    {WTEXT("SD"), 0x00010000}, {WTEXT("RC"), 0x00020000}, {WTEXT("WD"), 0x00040000},
    {WTEXT("WO"), 0x00080000}, {WTEXT("GA"), 0x10000000}, {WTEXT("GX"), 0x20000000},
    {WTEXT("GW"), 0x40000000}, {WTEXT("GR"), 0x80000000},
};

// What the rights of a mandatory label are called.
inline constexpr NamedBits kLabelRights[] = {
    {WTEXT("NW"), 0x1},
    {WTEXT("NR"), 0x2},
    {WTEXT("NX"), 0x4},
};

inline constexpr uint32_t kNoSubAuthority = 0xFFFFFFFF;

// S-1-authority-first[-second].
struct NamedSid {
    platform::WStringView name;
    uint8_t authority;
    uint32_t first;
    uint32_t second = kNoSubAuthority;
};

inline constexpr NamedSid kNamedSids[] = {
    {WTEXT("WD"), 1, 0},       {WTEXT("CO"), 3, 0},       {WTEXT("CG"), 3, 1},
    {WTEXT("OW"), 3, 4},       {WTEXT("NU"), 5, 2},       {WTEXT("IU"), 5, 4},
    {WTEXT("SU"), 5, 6},       {WTEXT("AN"), 5, 7},       {WTEXT("ED"), 5, 9},
    {WTEXT("PS"), 5, 10},      {WTEXT("AU"), 5, 11},      {WTEXT("RC"), 5, 12},
    {WTEXT("SY"), 5, 18},      {WTEXT("LS"), 5, 19},      {WTEXT("NS"), 5, 20},
    {WTEXT("BA"), 5, 32, 544}, {WTEXT("BU"), 5, 32, 545}, {WTEXT("BG"), 5, 32, 546},
    {WTEXT("PU"), 5, 32, 547}, {WTEXT("AO"), 5, 32, 548}, {WTEXT("SO"), 5, 32, 549},
    {WTEXT("PO"), 5, 32, 550}, {WTEXT("BO"), 5, 32, 551}, {WTEXT("RE"), 5, 32, 552},
    {WTEXT("RU"), 5, 32, 554}, {WTEXT("RD"), 5, 32, 555}, {WTEXT("NO"), 5, 32, 556},
    {WTEXT("MU"), 5, 32, 558}, {WTEXT("LU"), 5, 32, 559}, {WTEXT("IS"), 5, 32, 568},
    {WTEXT("CY"), 5, 32, 569}, {WTEXT("ER"), 5, 32, 573}, {WTEXT("CD"), 5, 32, 574},
    {WTEXT("RA"), 5, 32, 575}, {WTEXT("ES"), 5, 32, 576}, {WTEXT("MS"), 5, 32, 577},
    {WTEXT("HA"), 5, 32, 578}, {WTEXT("AA"), 5, 32, 579}, {WTEXT("RM"), 5, 32, 580},
    {WTEXT("WR"), 5, 33},      {WTEXT("AC"), 15, 2, 1},   {WTEXT("LW"), 16, 4096},
    {WTEXT("ME"), 16, 8192},   {WTEXT("MP"), 16, 8448},   {WTEXT("HI"), 16, 12288},
    {WTEXT("SI"), 16, 16384},  {WTEXT("AS"), 18, 1},      {WTEXT("SS"), 18, 2},
};

}  // namespace security
