#pragma once

#include <cstdint>

/// What a controller knows: parameter addresses, their values, telegram types and reason codes.
namespace controller {

enum Address : std::int32_t {
    outputVoltage = 0x0021, ///< 1 mV, -10000 to 10000
    frequency = 0x0022,     ///< 1 Hz, 1 to 50000000
    exposureTime = 0x0023,  ///< 1 ms, 1 to 10000000
    xPosition = 0x0024,     ///< 1 pm, full 32-bit range
    attenuator = 0x0025,    ///< 0 to 4095
    counter = 0x0026,       ///< read only; unsigned 32-bit, counts up
    voltageReadBack = 0x0027, ///< read only; 1 mV, with noise; told 20 times a second
    acquisition = 0x0040,   ///< an `Acquisition`
    xPixels = 0x0041,       ///< 1 to 4096
    yPixels = 0x0042,       ///< 1 to 4096
    frameMode = 0x0043,     ///< 2 to 6, as `FrameBuffer` has them
    lineRate = 0x0044,      ///< lines (stream: samples) per second, 1 to 100000
    samplePosition = 0x0045, ///< position of the next sample, 0 to 2147483647
    samples = 0x0100,       ///< told: `Ind` = absolute position of the first sample, data = samples
};

enum Acquisition : std::int32_t { acquisitionOff = 0, acquisitionArea = 1, acquisitionLine = 2, acquisitionStream = 3 };

enum TelegramType : std::uint32_t { typeSet = 0, typeGet = 1, typeDo = 2, typeAck = 3, typeTell = 4 };

/// First data word of an "ACK". Texts: `tracePrintReason`.
enum Reason : std::int32_t { reasonOk = 0, reasonInvalidAddress = 1, reasonOutOfRange = 2, reasonUnknownError = 99 };

} // namespace controller
