#pragma once

#include <vorelutil/platform/export.h>

/// The register address of an FPGA parameter, and the word that is sent for it.
///
/// Address, 16 bits: bits 11 to 14 `targetHigh`, bits 7 to 10 `targetMid`, bits 1 to 6 `targetLow`; bits 0
/// and 15 are zero. A command (`cset`) leaves `targetLow` out of the address and carries it as its data. A
/// record: the members may be set, `calculateAddress` then makes the address anew. One thread at a time.
class VORELUTIL_EXPORT FpgaInterface
{
public:
    /// Access kinds. `kind` may hold any other number, which prints as "undefined" and acts as `pset`.
    enum : int
    {
        undefined = 0, ///< not set
        pset = 1,      ///< set a parameter
        pget = 2,      ///< get a parameter
        cset = 3       ///< command
    };

    /// Kind `undefined`, all targets and the address 0.
    FpgaInterface() = default;
    /// Takes the lowest 4 bits of `targetHigh` and `targetMid` and the lowest 6 of `targetLow`, and composes
    /// the address.
    FpgaInterface(int kind, int targetHigh, int targetMid, int targetLow);
    virtual ~FpgaInterface();
    FpgaInterface(const FpgaInterface&) = default;
    FpgaInterface& operator=(const FpgaInterface&) = default;

    int getAddress() const { return address; }
    /// The word to send: the address in the upper 16 bits, the lowest 16 of `value` below; in a command
    /// `targetLow` instead of the value. It is kept in `sendWord`.
    int makeSendable(int value);
    /// Takes the targets, masked as in the constructor, and composes the address. Kept: a command's address
    /// is fixed at construction and does not follow.
    void setTarget(int targetHigh, int targetMid, int targetLow);
    /// Masks the targets and composes the address anew; not that of a command, as above.
    void calculateAddress();
    /// Writes to standard output: "FpgaInterface(KIND[HIGH,MID,LOW]) send[0x....], recv[0x....] -> 0xADDR"
    /// and a line feed, with kind "pset", "pget", "cset" or "undefined" and at least four hexadecimal digits.
    void print() const;

    int kind = undefined;
    int targetHigh = 0; ///< 0 to 15
    int targetMid = 0;  ///< 0 to 15
    int targetLow = 0;  ///< 0 to 63
    int address = 0;
    int sendWord = -1; ///< the last word sent, for display; -1: none
    int recvWord = -1; ///< the last word received, for display; never set here
};
