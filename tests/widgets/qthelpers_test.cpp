#include <csignal>
#include <gtest/gtest.h>
#include <QLineEdit>
#include <QSpinBox>
#include <QVBoxLayout>
#include <set>
#include <vorelutil/widgets/qthelpers.h>
#include <vorelutil/widgets/survivingprocess.h>

// clang-format off

TEST(QtHelpers, ColourGoesToOneRoleInAllGroups)
{
    QLineEdit edit;
    const QPalette before = edit.palette();
    qth_setWidgetColor(&edit, Qt::red, true);
    EXPECT_FALSE(edit.autoFillBackground());
    qth_setWidgetColor(&edit, Qt::green, false);
    for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        const QPalette& now = edit.palette();
        EXPECT_TRUE(now.brush(group, QPalette::Text) == QBrush(Qt::red) && now.brush(group, QPalette::Base) == QBrush(Qt::green));
        EXPECT_EQ(now.brush(group, QPalette::Window), before.brush(group, QPalette::Window));
    }
    qth_setWidgetColor(&edit, QColor(), true);
    EXPECT_TRUE(edit.autoFillBackground());
    qth_setWidgetColor(&edit, QColor(), false);
    EXPECT_FALSE(edit.autoFillBackground());
}

TEST(QtHelpers, TextsSpinBoxesAndLayouts)
{
    EXPECT_EQ(qth_q2s(QString::fromUtf8("a\xC2\xB5\xE2\x82\xAC") + QChar(0)), std::string("a\xB5?\0", 4));
    QWidget parent;
    QVBoxLayout layout(&parent);
    const QSpinBox& box = *qth_makeSpinBox(-3, 40, 7, &parent);
    EXPECT_EQ(std::tuple(box.parent(), box.minimum(), box.maximum(), box.singleStep()), std::tuple(&parent, -3, 40, 7));
    qth_setLayoutParams(&layout, 6, -1);
    EXPECT_TRUE(layout.contentsMargins() == QMargins(6, 6, 6, 6) && layout.spacing() == 6);
    qth_setLayoutParams(&layout, 0, 4);
    EXPECT_TRUE(layout.contentsMargins() == QMargins(0, 0, 0, 0) && layout.spacing() == 4);
}

TEST(QtHelpers, IconsAndTheProductIcon)
{
    EXPECT_TRUE(qth_makeIcon(nullptr, nullptr).isNull());
    char const* grey[] = {"1 1 1 1", "a c #808080", "a"};
    const QIcon icon = qth_makeIcon(vorel48, grey);
    EXPECT_EQ(icon.availableSizes(QIcon::Normal, QIcon::Off), QList<QSize>{QSize(48, 48)});
    EXPECT_EQ(icon.availableSizes(QIcon::Disabled, QIcon::Off), QList<QSize>{QSize(1, 1)});
    EXPECT_STREQ(vorel48[0], "48 48 234 2");
    const QImage image = QPixmap(vorel48).toImage().convertToFormat(QImage::Format_ARGB32);
    std::set<QRgb> colours;
    for (int i = 0; i < 48 * 48; ++i) colours.insert(image.pixel(i % 48, i / 48));
    EXPECT_EQ(colours.size(), 234U);
}

TEST(SurvivingProcess, LeavesItsProgramRunning)
{
    auto* process = new SurvivingProcess;
    process->start("sleep", {"300"});
    ASSERT_TRUE(process->waitForStarted());
    const auto surviving = static_cast<pid_t>(process->processId());
    delete process;
    EXPECT_EQ(kill(surviving, SIGTERM), 0);
}
