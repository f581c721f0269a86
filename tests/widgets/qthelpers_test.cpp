#include <csignal>
#include <gtest/gtest.h>
#include <QLineEdit>
#include <QPixmap>
#include <QSpinBox>
#include <QVBoxLayout>
#include <set>
#include <string>
#include <sys/types.h>
#include <vorelutil/widgets/qthelpers.h>
#include <vorelutil/widgets/survivingprocess.h>

TEST(QtHelpers, TextBecomesLatin1)
{
    EXPECT_EQ(qth_q2s(QString::fromUtf8("a\xC2\xB5\xE2\x82\xAC") + QChar(0) + "b"),
              std::string("a\xB5?\0b", 5));
    EXPECT_EQ(qth_q2s(QString()), "");
}

TEST(QtHelpers, ColourGoesToOneRoleInAllGroups)
{
    QLineEdit edit;
    const QPalette before = edit.palette();
    qth_setWidgetColor(&edit, Qt::red, true);
    EXPECT_FALSE(edit.autoFillBackground());
    qth_setWidgetColor(&edit, QColor("greenyellow"), false);
    EXPECT_TRUE(edit.autoFillBackground());
    for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        EXPECT_EQ(edit.palette().brush(group, QPalette::Text), QBrush(Qt::red));
        EXPECT_EQ(edit.palette().brush(group, QPalette::Base), QBrush(QColor("greenyellow")));
        EXPECT_EQ(edit.palette().brush(group, QPalette::Window), before.brush(group, QPalette::Window));
    }
    qth_setWidgetColor(&edit, Qt::blue, true);
    EXPECT_TRUE(edit.autoFillBackground());
    qth_setWidgetColor(&edit, QColor(), false);
    EXPECT_FALSE(edit.autoFillBackground());
}

TEST(QtHelpers, SpinBoxAndLayoutTakeTheirNumbers)
{
    QWidget parent;
    auto* layout = new QVBoxLayout(&parent);
    const QSpinBox* box = qth_makeSpinBox(-3, 40, 7, &parent);
    EXPECT_TRUE(box->parent() == &parent && box->minimum() == -3 && box->maximum() == 40 &&
                box->singleStep() == 7);
    qth_setLayoutParams(layout, 6, -1);
    EXPECT_EQ(layout->contentsMargins(), QMargins(6, 6, 6, 6));
    EXPECT_EQ(layout->spacing(), 6);
    qth_setLayoutParams(layout, 0, 4);
    EXPECT_EQ(layout->contentsMargins(), QMargins(0, 0, 0, 0));
    EXPECT_EQ(layout->spacing(), 4);
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
    ASSERT_EQ(image.size(), QSize(48, 48));
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
    EXPECT_EQ(kill(surviving, 0), 0);
    kill(surviving, SIGTERM);
}
