#include "safesave.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <new>
#include <QFile>
#include <vector>
#include <vorelutil/algo/unit.h>
#include <vorelutil/frames/framebuffer.h>
#include <vorelutil/frames/framereader.h>
#include <vorelutil/trace/error.h>

namespace bench {

namespace {

constexpr int voidPixel = 0x7FFFFFFA;

SaveResult failure(const QString& target, const QString& reason)
{
    return {false, QStringLiteral("%1 was not saved: %2").arg(target, reason)};
}

// The operator knows the target; the name that the file had until then is of no use.
QString reasonOf(const Error& error, const PendingFile& file, const QString& target)
{
    return QString::fromUtf8(error.message.c_str())
        .replace(QFile::decodeName(file.path()), target)
        .replace(QLatin1Char('\n'), QLatin1Char(' '));
}

QString writerReason(int code)
{
    switch (code) {
    case 1:
        return QStringLiteral("there is nothing to save");
    case 2:
        return QStringLiteral("the file could not be opened");
    case 3:
        return QStringLiteral("there is no memory for the image");
    default:
        return QStringLiteral("the writer reports %1").arg(code);
    }
}

// What a raw sample stands for, without prefix.
class SampleScale
{
public:
    explicit SampleScale(const FrameBuffer& frame)
        : m_offset(frame.findMeta(FrameBuffer::KeySampleOffset, 0))
    {
        algoGetBaseUnit(frame.findMeta(FrameBuffer::KeyValueUnit, 128), nullptr, &m_scale);
        m_scale /= frame.findMeta(FrameBuffer::KeySampleDivisor, 1);
    }
    double operator()(int sample) const { return (double(sample) - m_offset) * m_scale; }

private:
    double m_offset;
    double m_scale = 1.0;
};

// Nine digits were written: half a unit of the ninth is the largest difference that is none.
bool sameText(double read, double written)
{
    if (std::isnan(read) || std::isnan(written)) return std::isnan(read) && std::isnan(written);
    if (std::isinf(written)) return read == written;
    return std::fabs(read - written) <= 5.1e-9 * std::fabs(written);
}

bool sameSingle(double read, double written)
{
    const auto single = static_cast<float>(written);
    return read == double(single) || (std::isnan(read) && std::isnan(single));
}

// Each checker reads the file back and throws an `Error` where it differs from the frame.
void checkArea(const FrameBuffer& frame, Snapshot kind, const std::string& path, bool forward)
{
    const bool binary = kind == Snapshot::Binary;
    const ::FrameImage image = binary ? readFrameBcr(path) : readFrameAsc(path);
    if (image.xPixels != frame.xPixels() || image.yPixels != frame.yPixels())
        throw IOError("read back, the size is another one");
    std::vector<int> pixels(image.values.size());
    frame.sortData(pixels.data(), forward, binary ? voidPixel : 0);
    const SampleScale value(frame);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        const double read = image.values[i];
        const bool same = !binary                  ? sameText(read, value(pixels[i]))
                          : pixels[i] == voidPixel ? std::isnan(read)
                                                   : sameSingle(read, value(pixels[i]));
        if (!same) throw IOError("read back, pixel " + std::to_string(i) + " is another one");
    }
}

// The samples of a line export in the order of its rows: all of a stream, of a scan its first line.
void checkLine(const FrameBuffer& frame, const std::string& path)
{
    const FrameLine line = readLineCsv(path);
    unsigned held = 0;
    const int* samples = frame.getData(&held);
    auto rows = std::size_t(held);
    if (frame.mode() != FrameBuffer::Stream) {
        const bool twoPasses =
            frame.mode() == FrameBuffer::ForwardReturn || frame.mode() == FrameBuffer::ReturnForward;
        rows = std::min(rows, std::size_t(frame.xPixels()) * (twoPasses ? 2U : 1U));
    }
    if (line.y.size() != rows)
        throw IOError("read back, there are " + std::to_string(line.y.size()) + " lines of " +
                      std::to_string(rows));
    const SampleScale value(frame);
    for (std::size_t i = 0; i < rows; ++i)
        if (!sameText(line.y[i], value(samples[i])))
            throw IOError("read back, line " + std::to_string(i) + " is another one");
}

// Counts the lines of a log without holding it in memory, and finds the last one.
struct TextEnd
{
    qint64 lines = 0;
    QByteArray last;    ///< without its line end
    bool whole = false; ///< the file ends with a line end
};

TextEnd readTextEnd(const QByteArray& path)
{
    QFile file(QFile::decodeName(path));
    if (!file.open(QIODevice::ReadOnly)) throw IOError(file.errorString().toStdString());
    TextEnd end;
    QByteArray tail;
    QByteArray block(1024 * 1024, Qt::Uninitialized);
    for (qint64 got = 0; (got = file.read(block.data(), block.size())) > 0;) {
        end.lines += std::count(block.constData(), block.constData() + got, '\n');
        const int size = static_cast<int>(got);
        tail = (tail + QByteArray::fromRawData(block.constData(), size)).right(256);
    }
    if (file.error() != QFile::NoError) throw IOError(file.errorString().toStdString());
    end.whole = tail.endsWith('\n');
    if (end.whole) tail.chop(1);
    end.last = tail.mid(tail.lastIndexOf('\n') + 1);
    return end;
}

void checkLog(const QByteArray& path, const SampleScale& value, qint64 count, int last)
{
    constexpr qint64 headerLines = 5;
    const TextEnd end = readTextEnd(path);
    if (!end.whole || end.lines != headerLines + count)
        throw IOError("read back, there are " + std::to_string(std::max<qint64>(0, end.lines - headerLines)) +
                      " whole values of " + std::to_string(count));
    if (count == 0) return;
    double read = 0;
    const auto [stop, error] =
        std::from_chars(end.last.constData(), end.last.constData() + end.last.size(), read);
    if (error != std::errc() || *stop != '\0' || !sameText(read, value(last)))
        throw IOError("read back, the last value is another one");
}

} // namespace

SaveResult saveSnapshot(const FrameBuffer& frame, Snapshot kind, const QString& target,
                        const QString& channel, bool forward)
{
    PendingFile file(target);
    try {
        QString error;
        if (!file.create(&error)) return failure(target, error);
        const QByteArray path = file.path();
        const QByteArray name = channel.toUtf8();
        int code = 0;
        switch (kind) {
        case Snapshot::Text:
            code = frame.saveFrameAsc(path.constData(), name.constData(), forward, false);
            break;
        case Snapshot::Binary:
            code = frame.saveFrameBcr(path.constData(), name.constData(), forward);
            break;
        case Snapshot::Line:
            code = frame.saveLineCsv(path.constData(), name.constData());
            break;
        }
        if (code != 0) return failure(target, writerReason(code));
        if (kind == Snapshot::Line)
            checkLine(frame, path.toStdString());
        else
            checkArea(frame, kind, path.toStdString(), forward);
        if (!file.commit(&error)) return failure(target, error);
        return {true, QStringLiteral("saved %1").arg(target)};
    } catch (const Error& error) {
        return failure(target, reasonOf(error, file, target));
    } catch (const std::exception& error) {
        return failure(target, QString::fromLocal8Bit(error.what()));
    }
}

RunningLog::RunningLog() = default;

RunningLog::~RunningLog()
{
    discard();
}

void RunningLog::discard()
{
    m_buffer.reset(); // closes the file, before it is removed
    m_file.reset();
    m_count = 0;
}

SaveResult RunningLog::start(const FrameBuffer& frame, const QString& target, const QString& channel)
{
    discard();
    m_target = target;
    try {
        auto file = std::make_unique<PendingFile>(target);
        QString error;
        if (!file->create(&error)) return failure(target, error);
        auto buffer = std::make_unique<FrameBuffer>(frame, false);
        buffer->setActive(false); // it lends its metadata; samples are not kept
        const int code = buffer->startPermCsv(file->path().constData(), channel.toUtf8().constData());
        if (code != 0) return failure(target, writerReason(code));
        m_file = std::move(file);
        m_buffer = std::move(buffer);
        return {true, QStringLiteral("logging to %1").arg(target)};
    } catch (const Error&) {
        return failure(target, writerReason(3));
    } catch (const std::bad_alloc&) {
        return failure(target, writerReason(3));
    }
}

void RunningLog::add(const int* samples, int count)
{
    if (m_buffer == nullptr || count < 1) return;
    m_buffer->savePermCsv(samples, count);
    m_count += count;
    m_last = samples[count - 1];
}

SaveResult RunningLog::stop()
{
    if (m_buffer == nullptr) return {false, QStringLiteral("no log is running")};
    SaveResult result;
    try {
        m_buffer->startPermCsv(nullptr, nullptr); // closes it
        checkLog(m_file->path(), SampleScale(*m_buffer), m_count, m_last);
        QString error;
        if (m_file->commit(&error))
            result = {true, QStringLiteral("saved %1, %2 values").arg(m_target).arg(m_count)};
        else
            result = failure(m_target, error);
    } catch (const Error& error) {
        result = failure(m_target, reasonOf(error, *m_file, m_target));
    } catch (const std::exception& error) {
        result = failure(m_target, QString::fromLocal8Bit(error.what()));
    }
    discard();
    return result;
}

} // namespace bench
