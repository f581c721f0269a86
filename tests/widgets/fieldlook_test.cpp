#include "fields.h"

#include <QSet>
#include <QStyleFactory>

// clang-format off

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
        QFont font;
        font.setPixelSize(24); // strokes of several pixels, so that some have the text's very colour
        font.setBold(true);
        for (auto* const field : std::initializer_list<QLineEdit*>{&unitEdit, &dblEdit}) {
            field->resize(140, 48);
            field->setFont(font);
            field->setText("HEH");
        }
    }

    static bool shows(QLineEdit& field, char const* background, char const* text)
    {
        QImage const image = field.grab(field.rect().adjusted(4, 4, -4, -4)).toImage();
        QSet<QRgb> pixels;
        for (int i = 0; i < image.width() * image.height(); ++i) pixels << image.pixel(i % image.width(), i / image.width());
        return pixels.contains(QColor(background).rgb()) && pixels.contains(QColor(text).rgb());
    }

    QPalette const m_former = QApplication::palette();
    QPalette const light = palette("#101010", "#bebebe", "#efefef");
    QPalette const dark = palette("#e0e0e0", "#505050", "#202020");
    UnitEdit unitEdit;
    DblEdit dblEdit;
};

TEST_P(FieldLook, TextIsReadableInEveryStateAndPalette)
{
    QPalette onlyText = light;
    onlyText.setColor(QPalette::Text, "#ffffe0");
    enum Status : int { Same, Valid, Invalid, Committed, Idle }; // Same: without a call
    struct Row { QPalette const& palette; Status status; char const* background; bool enabled; char const* text; };
    Row const rows[] = { // in this order: colours must also come back
        {light, Idle, "white", true, "#101010"},           {dark, Same, "white", true, "black"},   {light, Same, "white", true, "#101010"},
        {onlyText, Same, "white", true, "black"},          {light, Valid, "lightgreen", true, "#101010"}, {light, Invalid, "red", true, "#101010"},
        {light, Committed, "greenyellow", true, "#101010"}, {light, Idle, "navy", true, "white"},  {light, Idle, "white", true, "#101010"},
        {light, Same, "white", false, "#737373"}, // 4.7:1, and not as black as enabled text
        {dark, Same, "white", false, "#505050"},           {dark, Valid, "lightgreen", true, "black"}, {dark, Invalid, "red", true, "black"},
        {dark, Committed, "greenyellow", true, "black"},   {dark, Idle, "#303030", true, "#e0e0e0"}, {dark, Same, "#303030", false, "#989898"}}; // 4.6:1
    auto const walk = [&](auto& field) {
        using EditStatus = decltype(field.status()); // of a `DblEdit`, 4 is any other value: idle as well
        for (auto const& row : rows) {
            if (row.status == Committed && std::is_same_v<EditStatus, DblEdit::EditStatus>) continue;
            QApplication::setPalette(row.palette); // while the field has the former row's background
            field.setEnabled(row.enabled);
            if (row.status == Idle) field.setDefaultColor(row.background);
            if (row.status != Same) field.setStatus(EditStatus(row.status));
            EXPECT_TRUE(shows(field, row.background, row.text)) << row.background << ' ' << row.text;
        }
        field.setDefaultColor("white");
        field.setEnabled(true);
        field.setPlaceholderText(field.text());
        field.clear();
        field.setStatus(EditStatus(Idle));
        QApplication::setPalette(light);
        EXPECT_TRUE(shows(field, "white", "#737373"));
    };
    walk(unitEdit);
    walk(dblEdit);
}

TEST_P(FieldLook, KeepsTheColoursThatTheOwnerGave)
{
    QPalette own = dblEdit.palette();
    own.setColor(QPalette::Text, "#000080");
    dblEdit.setPalette(own);
    dblEdit.setStatus(DblEdit::EsIdle);
    for (auto const& [background, text] : {std::pair{"white", "#000080"}, {"#202020", "white"}, {"white", "#000080"}}) {
        dblEdit.setDefaultColor(background);
        EXPECT_TRUE(shows(dblEdit, background, text)) << background;
    }
    dblEdit.setDefaultColor("#202020"); // takes every text, and the owner gives another meanwhile
    QPalette mixed = dblEdit.palette();
    mixed.setColor(QPalette::PlaceholderText, "#c0c0ff");
    dblEdit.setPalette(mixed);
    dblEdit.setDefaultColor("#101010");
    EXPECT_EQ(dblEdit.palette().color(QPalette::PlaceholderText), QColor("#c0c0ff"));
    own.setColor(QPalette::Base, Qt::black); // behind our back
    dblEdit.setPalette(own);
    EXPECT_TRUE(shows(dblEdit, "black", "white"));
    dblEdit.setDefaultColor("white");
    EXPECT_TRUE(shows(dblEdit, "white", "#000080"));
    dblEdit.setDefaultColor("#202020");
    dblEdit.setPalette({}); // the owner's are gone: from now on the application's count
    QApplication::setPalette(palette("#800000", "#bebebe", "#efefef"));
    EXPECT_EQ(dblEdit.palette().color(QPalette::Text), QColor("#800000"));
}

INSTANTIATE_TEST_SUITE_P(Styles, FieldLook, testing::Values("fusion", "windows"), [](auto const& row) { return std::string(row.param); });

} // namespace
