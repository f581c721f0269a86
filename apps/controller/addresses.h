#pragma once

#include <cstdint>

/// What a controller knows: parameter addresses, their values, telegram types and reason codes.
namespace controller {

enum Address : std::int32_t
{
    outputVoltage = 0x0021,   ///< 1 mV, -10000 to 10000
    frequency = 0x0022,       ///< 1 Hz, 1 to 50000000
    exposureTime = 0x0023,    ///< 1 ms, 1 to 10000000
    xPosition = 0x0024,       ///< 1 pm, full 32-bit range
    attenuator = 0x0025,      ///< 0 to 4095
    counter = 0x0026,         ///< read only; unsigned 32-bit, counts up
    voltageReadBack = 0x0027, ///< read only; 1 mV, with noise; told 20 times a second
    acquisition = 0x0040,     ///< an `Acquisition`
    xPixels = 0x0041,         ///< 1 to 4096
    yPixels = 0x0042,         ///< 1 to 4096
    frameMode = 0x0043,       ///< 2 to 6, as `FrameBuffer` has them
    lineRate = 0x0044,        ///< lines (stream: samples) per second, 1 to 100000
    samplePosition = 0x0045,  ///< position of the next sample, 0 to 2147483647
    timeStampFormat = 0x0050, ///< a `TimeStampFormat`; not 0: packets are told
    eventRate = 0x0051,       ///< events per second of the time-stamp stream, 1 to 5000000
    samples = 0x0100,         ///< told: `Ind` = absolute position of the first sample, data = samples
    packet = 0x0110,          ///< told: `Ind` = the packet's `TimeStampFormat`, data = its words
    firmwareProduct = 0x0200, ///< read only; a number, see `productName`
    firmwareVersion =
        0x0201,           ///< read only; the number that the digits of the version text make: 141 for 1.41
    flashBlock = 0x0202,  ///< "SET": `Ind` = number of the block, from 0 on; data = 4 bytes to 64 KiB
    flashFinish = 0x0203, ///< "DO": the download is finished; the answer's value is the CRC-32 of its data
    sweepPoint = 0x1070,  ///< number of the point that was just set, from 0 on
    sweepStart = 0x1071,  ///< in the scale that `sweepUnit` names, as `sweepEnd`
    sweepEnd = 0x1072,
    sweepSteps = 0x1073,    ///< points of a sweep in one direction, 2 or more
    sweepUnit = 0x1074,     ///< a unit code as `algoGetBaseUnit` takes it
    sweepBothWays = 0x1075, ///< 1: forward and back
};

enum Acquisition : std::int32_t
{
    acquisitionOff = 0,
    acquisitionArea = 1,
    acquisitionLine = 2,
    acquisitionStream = 3
};

/// Packet formats of the time-stamp stream; see tdc56.h.
enum TimeStampFormat : std::int32_t
{
    timeStampsOff = 0,
    timeStamps56 = 1,
    timeStamps52 = 2,
    timeStamps52x = 3,
    timeStamps60 = 4,
    timeStamps60b = 5
};

enum TelegramType : std::uint32_t
{
    typeSet = 0,
    typeGet = 1,
    typeDo = 2,
    typeAck = 3,
    typeTell = 4
};

/// First data word of an "ACK". Texts: `tracePrintReason`.
enum Reason : std::int32_t
{
    reasonOk = 0,
    reasonInvalidAddress = 1,
    reasonOutOfRange = 2,
    reasonUnknownError = 99
};

/// What the number at `firmwareProduct` stands for.
struct Product
{
    std::int32_t number;
    const char* name; ///< as images have it
};

constexpr Product products[] = {
    {1, "ScanControl"},
    {2, "TimeStamper"},
};

/// Null: no such product is known.
constexpr const char* productName(std::int32_t number)
{
    for (const Product& product : products)
        if (product.number == number) return product.name;
    return nullptr;
}

/// The values at this address are unsigned 32-bit numbers.
constexpr bool isUnsigned(std::int32_t address)
{
    return address == counter;
}

/// The trace category of a telegram (`kind` of `traceTelegram`). A trace flag word with `TRACE_ON` and the
/// bits of a category shows its telegrams; "TELL"s need `TRACE_TELL` (0x100) besides.
enum TraceCategory : int
{
    categoryRequest = 0x008, ///< "SET", "GET", "DO" and their "ACK"s
    categoryTell = 0x010,    ///< "TELL"s of parameters
    categorySamples = 0x020, ///< "TELL"s of samples and time-stamp packets
};

/// What raw values stand for. Unit codes as `algoGetBaseUnit` takes them.
namespace scale {
constexpr std::int32_t scanWidth = 100000; ///< pm, distance from the first to the last column of a scan
constexpr std::int32_t scanHeight = 75000; ///< pm, distance from the first to the last row of an area
constexpr std::int32_t lengthUnit = 0x17C; ///< pm: unit of the lengths
constexpr std::int32_t sampleUnit = 0x17C; ///< pm: unit of the samples, 1 raw = 1 pm
constexpr std::int32_t sampleDivisor = 1;
constexpr std::int32_t clockPeriod = 1000; ///< ps, of the time stamps
constexpr std::int32_t stepHeight = 300;   ///< pm, one atomic step of the simulated surface
} // namespace scale

} // namespace controller
