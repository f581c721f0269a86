#include "fpgainterface.h"

#include <cstdint>
#include <cstdio>

namespace {

const char* kindName(int kind)
{
    switch (kind) {
    case FpgaInterface::pset:
        return "pset";
    case FpgaInterface::pget:
        return "pget";
    case FpgaInterface::cset:
        return "cset";
    default:
        return "undefined";
    }
}

} // namespace

FpgaInterface::FpgaInterface(int accessKind, int high, int mid, int low)
    : kind(accessKind)
    , targetHigh(high & 15)
    , targetMid(mid & 15)
    , targetLow(low & 63)
    , address(targetHigh << 11 | targetMid << 7)
{
    calculateAddress();
}

FpgaInterface::~FpgaInterface() = default;

int FpgaInterface::makeSendable(int value)
{
    const std::uint32_t low = static_cast<std::uint32_t>(kind == cset ? targetLow : value) & 0xFFFF;
    sendWord = static_cast<std::int32_t>(static_cast<std::uint32_t>(address) << 16 | low);
    return sendWord;
}

void FpgaInterface::setTarget(int high, int mid, int low)
{
    targetHigh = high;
    targetMid = mid;
    targetLow = low;
    calculateAddress();
}

void FpgaInterface::calculateAddress()
{
    targetHigh &= 15;
    targetMid &= 15;
    targetLow &= 63;
    if (kind != cset) address = targetHigh << 11 | targetMid << 7 | targetLow << 1;
}

void FpgaInterface::print() const
{
    std::printf("FpgaInterface(%s[%d,%d,%d]) send[0x%04x], recv[0x%04x] -> 0x%04x\n", kindName(kind),
                targetHigh, targetMid, targetLow, static_cast<unsigned>(sendWord),
                static_cast<unsigned>(recvWord), static_cast<unsigned>(address));
}
