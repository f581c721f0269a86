#include "histogrampicture.h"

#include <algorithm>
#include <cmath>
#include <QFont>
#include <QPainter>
#include <vorelutil/algo/scale.h>

namespace cli {
namespace {

constexpr QSize pictureSize(1000, 600);
constexpr QRect plot(95, 55, 870, 465);
constexpr int ticLength = 6;
constexpr int ticsAcross = 10;
constexpr int ticsUp = 8;

const QColor ink(0x26, 0x2A, 0x30);
const QColor grid(0xE3, 0xE6, 0xEA);
const QColor edge(0x1F, 0x5F, 0x9F);
const QColor face(0xC9, 0xDD, 0xF0);

struct Tic
{
    double value;
    QString label;
};

/// Round values from 0 to `high`, which is above 0.
QVector<Tic> tics(double high, int most)
{
    double first = 0.0;
    double step = 0.0;
    algoCalcScaleTics(0.0, high, most, &first, &step, nullptr);
    QVector<Tic> all;
    if (!(step > 0.0) || !std::isfinite(step)) return all;
    for (int i = 0; i <= 2 * most && i * step <= high * (1.0 + 1e-9); ++i)
        all.append({i * step, QString::number(i * step, 'g', 7)});
    return all;
}

/// The outline of the bars, from the left end of the base line to the right.
QPolygonF outline(const std::vector<std::uint64_t>& counts, double high)
{
    const auto bins = double(counts.size());
    const auto y = [&](std::uint64_t count) { return plot.bottom() - plot.height() * double(count) / high; };
    const auto columns = std::min<std::size_t>(counts.size(), std::size_t(plot.width()));
    QPolygonF line;
    line << QPointF(plot.left(), plot.bottom());
    for (std::size_t column = 0; column < columns; ++column) {
        const std::size_t from = column * counts.size() / columns;
        const std::size_t to = (column + 1) * counts.size() / columns;
        const auto highest =
            *std::max_element(counts.begin() + std::ptrdiff_t(from), counts.begin() + std::ptrdiff_t(to));
        line << QPointF(plot.left() + plot.width() * double(from) / bins, y(highest))
             << QPointF(plot.left() + plot.width() * double(to) / bins, y(highest));
    }
    line << QPointF(plot.left() + plot.width(), plot.bottom());
    return line;
}

} // namespace

QImage histogramPicture(const std::vector<std::uint64_t>& counts, std::int64_t binWidth, const QString& title)
{
    QImage image(pictureSize, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing, false);
    QFont font;
    font.setPixelSize(15);
    painter.setFont(font);

    const auto most = double(*std::max_element(counts.begin(), counts.end()));
    const double high = most > 0.0 ? 1.05 * most : 1.0;
    const double end = double(binWidth) * double(counts.size());
    const QVector<Tic> across = tics(end, ticsAcross);
    QVector<Tic> up = tics(high, ticsUp);
    // Counts are whole.
    up.erase(std::remove_if(up.begin(), up.end(),
                            [](const Tic& tic) { return tic.value != std::floor(tic.value); }),
             up.end());

    painter.setPen(grid);
    for (const Tic& tic : up) {
        const int y = plot.bottom() - int(std::lround(plot.height() * tic.value / high));
        painter.drawLine(plot.left(), y, plot.right(), y);
    }
    const QPolygonF bars = outline(counts, high);
    painter.setPen(Qt::NoPen);
    painter.setBrush(face);
    painter.drawPolygon(bars);
    painter.setPen(edge);
    painter.drawPolyline(bars);

    painter.setPen(ink);
    painter.drawLine(plot.bottomLeft(), plot.bottomRight());
    painter.drawLine(plot.bottomLeft(), plot.topLeft());
    for (const Tic& tic : across) {
        const int x = plot.left() + int(std::lround(plot.width() * tic.value / end));
        painter.drawLine(x, plot.bottom(), x, plot.bottom() + ticLength);
        painter.drawText(QRect(x - 60, plot.bottom() + ticLength + 2, 120, 22), Qt::AlignHCenter, tic.label);
    }
    for (const Tic& tic : up) {
        const int y = plot.bottom() - int(std::lround(plot.height() * tic.value / high));
        painter.drawLine(plot.left() - ticLength, y, plot.left(), y);
        painter.drawText(QRect(0, y - 12, plot.left() - ticLength - 4, 24), Qt::AlignRight | Qt::AlignVCenter,
                         tic.label);
    }
    painter.drawText(QRect(plot.left(), plot.bottom() + 40, plot.width(), 24), Qt::AlignHCenter,
                     QStringLiteral("Time after the start (clock periods)"));
    painter.save();
    painter.translate(22, plot.center().y());
    painter.rotate(-90.0);
    painter.drawText(QRect(-plot.height() / 2, -12, plot.height(), 24), Qt::AlignCenter,
                     QStringLiteral("Counts"));
    painter.restore();
    font.setPixelSize(19);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(QRect(plot.left(), 14, plot.width(), 30), Qt::AlignHCenter, title);
    return image;
}

} // namespace cli
