#include <vorelutil/widgets/fieldlook.h>

#include <gtest/gtest.h>
#include <QApplication>
#include <QLineEdit>
#include <QSet>
#include <QStyleFactory>

namespace {

QPalette palette(char const* text, char const* disabled, char const* base)
{
    QPalette p{QColor(base)};
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Disabled, QPalette::Text, disabled);
    p.setColor(QPalette::PlaceholderText, disabled);
    return p;
}

class FieldLook : public testing::TestWithParam<char const*>
{
public:
    ~FieldLook() override { QApplication::setPalette(m_former); }

protected:
    FieldLook()
    {
        QApplication::setStyle(QStyleFactory::create(GetParam()));
        field.resize(140, 48);
        QFont font;
        font.setPixelSize(24); // strokes of several pixels, so that some have the text's very colour
        font.setBold(true);
        field.setFont(font);
        field.setText("HEH");
    }

    bool shows(char const* background, char const* text)
    {
        QImage const image = field.grab(field.rect().adjusted(4, 4, -4, -4)).toImage();
        QSet<QRgb> pixels;
        for (int i = 0; i < image.width() * image.height(); ++i)
            pixels << image.pixel(i % image.width(), i / image.width());
        return pixels.contains(QColor(background).rgb()) && pixels.contains(QColor(text).rgb());
    }

    QPalette const m_former = QApplication::palette();
    QPalette const light = palette("#101010", "#bebebe", "#efefef");
    QPalette const dark = palette("#e0e0e0", "#505050", "#202020");
    QLineEdit field;
};

TEST_P(FieldLook, TextIsReadableInEveryStateAndPalette)
{
    QPalette onlyText = light;
    onlyText.setColor(QPalette::Text, "#ffffe0");
    struct Row
    {
        QPalette const& palette;
        char const* background; ///< null: the one before, without a call
        bool enabled;
        char const* text;
    };
    // clang-format off
    Row const rows[] = { // in this order: colours must also come back
        {light,    "white",       true,  "#101010"},
        {dark,     nullptr,       true,  "black"},
        {light,    nullptr,       true,  "#101010"},
        {onlyText, nullptr,       true,  "black"},
        {light,    "lightgreen",  true,  "#101010"},
        {light,    "red",         true,  "#101010"},
        {light,    "greenyellow", true,  "#101010"},
        {light,    "navy",        true,  "white"},
        {light,    "white",       true,  "#101010"},
        {light,    nullptr,       false, "#737373"}, // 4.7:1, and not as black as enabled text
        {dark,     nullptr,       false, "#505050"},
        {dark,     "lightgreen",  true,  "black"},
        {dark,     "red",         true,  "black"},
        {dark,     "greenyellow", true,  "black"},
        {dark,     "#303030",     true,  "#e0e0e0"},
        {dark,     nullptr,       false, "#989898"}, // 4.6:1
    };
    // clang-format on
    char const* background = nullptr;
    for (auto const& row : rows) {
        QApplication::setPalette(row.palette); // while the field has the former row's background
        field.setEnabled(row.enabled);
        if (row.background) fieldlook::setBackground(&field, background = row.background);
        for (bool const readOnly : {false, true}) {
            field.setReadOnly(readOnly);
            EXPECT_TRUE(shows(background, row.text)) << background << ' ' << row.text;
        }
    }
    fieldlook::setBackground(&field, "white");
    field.setEnabled(true);
    field.clear();
    field.setPlaceholderText("HEH");
    EXPECT_TRUE(shows("white", "#505050"));
    QApplication::setPalette(light);
    EXPECT_TRUE(shows("white", "#737373"));
}

TEST_P(FieldLook, KeepsTheColoursThatTheOwnerGave)
{
    QPalette own = field.palette();
    own.setColor(QPalette::Text, "#000080");
    field.setPalette(own);
    for (auto const& [background, text] :
         {std::pair{"white", "#000080"}, {"#202020", "white"}, {"white", "#000080"}}) {
        fieldlook::setBackground(&field, background);
        EXPECT_TRUE(shows(background, text)) << background;
    }
    own.setColor(QPalette::Base, Qt::black); // behind our back
    field.setPalette(own);
    EXPECT_TRUE(shows("black", "white"));
    fieldlook::setBackground(&field, "white");
    EXPECT_TRUE(shows("white", "#000080"));
}

INSTANTIATE_TEST_SUITE_P(Styles, FieldLook, testing::Values("fusion", "windows"),
                         [](auto const& row) { return std::string(row.param); });

} // namespace
