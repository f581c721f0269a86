#include <vorelutil/widgets/fieldlook.h>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <QApplication>
#include <QHash>
#include <QLineEdit>
#include <QStyle>
#include <QStyleFactory>

namespace {

double luminance(QRgb pixel)
{
    auto const linear = [](int channel) {
        double const c = channel / 255.0;
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(qRed(pixel)) + 0.7152 * linear(qGreen(pixel)) + 0.0722 * linear(qBlue(pixel));
}

double contrast(QRgb a, QRgb b)
{
    auto const [dark, bright] = std::minmax({luminance(a), luminance(b)});
    return (bright + 0.05) / (dark + 0.05);
}

/// What a user sees of a field: the commonest pixel, and the one that stands out most from it.
struct Seen
{
    explicit Seen(QLineEdit& field)
    {
        QImage const image = field.grab(field.rect().adjusted(4, 4, -4, -4)).toImage();
        QHash<QRgb, int> counts;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) ++counts[image.pixel(x, y)];
        }
        background = std::max_element(counts.begin(), counts.end()).key();
        text = background;
        for (auto it = counts.begin(); it != counts.end(); ++it) {
            if (contrast(it.key(), background) > contrast(text, background)) text = it.key();
        }
    }
    QRgb background;
    QRgb text;
};

QPalette palette(QColor const& text, QColor const& disabled, QColor const& base)
{
    QPalette p(text, base, base.lighter(), base.darker(), Qt::gray, text, Qt::white, base, base);
    p.setColor(QPalette::Disabled, QPalette::Text, disabled);
    p.setColor(QPalette::PlaceholderText, disabled);
    return p;
}

QPalette const light = palette("#101010", "#bebebe", "#efefef");
QPalette const dark = palette("#e0e0e0", "#505050", "#202020");

class FieldLook : public testing::TestWithParam<char const*>
{
protected:
    FieldLook()
    {
        QApplication::setStyle(QStyleFactory::create(GetParam()));
        field.resize(140, 48);
        QFont font;
        font.setPixelSize(24);
        font.setBold(true);
        field.setFont(font);
        field.setText("HEH");
    }
    ~FieldLook() override { QApplication::setPalette(m_former); }

    QPalette const m_former = QApplication::palette();
    QLineEdit field;
};

TEST_P(FieldLook, TextIsReadableInEveryState)
{
    struct Row
    {
        char const* desc;
        QPalette const& palette;
        char const* background;
        bool enabled;
        char const* text; ///< null: any that has the contrast
    };
    // clang-format off
    Row const rows[] = {
        {"idle",                     light, "white",       true,  "#101010"},
        {"valid",                    light, "lightgreen",  true,  "#101010"},
        {"invalid",                  light, "red",         true,  "#101010"},
        {"waiting",                  light, "greenyellow", true,  "#101010"},
        {"own idle colour",          light, "navy",        true,  "white"},
        {"readable again",           light, "yellow",      true,  "#101010"},
        {"idle, disabled",           light, "white",       false, nullptr},
        {"idle, dark",               dark,  "white",       true,  "black"},
        {"valid, dark",              dark,  "lightgreen",  true,  "black"},
        {"invalid, dark",            dark,  "red",         true,  "black"},
        {"waiting, dark",            dark,  "greenyellow", true,  "black"},
        {"own idle colour, dark",    dark,  "#303030",     true,  "#e0e0e0"},
        {"disabled, dark",           dark,  "#303030",     false, nullptr},
        {"invalid, disabled, dark",  dark,  "red",         false, nullptr},
        {"disabled, idle, dark",     dark,  "white",       false, "#505050"},
        {"light again",              light, "white",       true,  "#101010"},
    };
    // clang-format on
    for (auto const& row : rows) {
        SCOPED_TRACE(row.desc);
        QApplication::setPalette(row.palette);
        field.setEnabled(row.enabled);
        fieldlook::setBackground(&field, row.background);
        for (bool const readOnly : {false, true}) {
            field.setReadOnly(readOnly);
            Seen const seen(field);
            EXPECT_EQ(QColor(seen.background).name().toStdString(),
                      QColor(row.background).name().toStdString());
            EXPECT_GE(contrast(seen.text, seen.background), 4.5);
            if (row.text) {
                EXPECT_EQ(QColor(seen.text).name().toStdString(), QColor(row.text).name().toStdString());
            } else {
                EXPECT_LT(contrast(seen.text, seen.background), 6.0) << "does not look disabled";
            }
        }
    }
}

TEST_P(FieldLook, FollowsThePaletteWhileTheApplicationRuns)
{
    fieldlook::setBackground(&field, Qt::white);
    QPalette onlyText = light;
    onlyText.setColor(QPalette::Text, "#ffffe0");
    for (auto const& [given, expected] : {std::pair{light, "#101010"},
                                          {dark, "#000000"},
                                          {light, "#101010"},
                                          {onlyText, "#000000"},
                                          {light, "#101010"}}) {
        QApplication::setPalette(given);
        EXPECT_EQ(QColor(Seen(field).text).name().toStdString(), expected);
    }
    field.clear();
    field.setPlaceholderText("HEH");
    QApplication::setPalette(dark);
    EXPECT_GE(contrast(Seen(field).text, 0xffffffff), 4.5);
}

TEST_P(FieldLook, KeepsTheColoursThatTheOwnerGave)
{
    QApplication::setPalette(light);
    QPalette own = field.palette();
    own.setColor(QPalette::Text, "#000080");
    field.setPalette(own);
    for (auto const& [background, expected] :
         {std::pair{"white", "#000080"}, {"#202020", "#ffffff"}, {"white", "#000080"}}) {
        fieldlook::setBackground(&field, background);
        EXPECT_EQ(QColor(Seen(field).text).name().toStdString(), expected) << background;
    }
    own.setColor(QPalette::Base, Qt::black); // behind our back
    field.setPalette(own);
    EXPECT_EQ(QColor(Seen(field).text).name().toStdString(), "#ffffff");
    fieldlook::setBackground(&field, "white");
    EXPECT_EQ(QColor(Seen(field).background), QColor("white"));
}

INSTANTIATE_TEST_SUITE_P(Styles, FieldLook, testing::Values("fusion", "windows"),
                         [](auto const& row) { return std::string(row.param); });

} // namespace
