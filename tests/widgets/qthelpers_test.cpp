#include <csignal>
#include <gtest/gtest.h>
#include <QLineEdit>
#include <QSpinBox>
#include <QVBoxLayout>
#include <vorelutil/widgets/qthelpers.h>
#include <vorelutil/widgets/survivingprocess.h>

TEST(QtHelpers, ColourGoesToOneRoleInAllGroups)
{
    QLineEdit edit;
    QPalette wanted = edit.palette();
    wanted.setBrush(QPalette::Text, Qt::red);
    qth_setWidgetColor(&edit, Qt::red, true);
    wanted.setBrush(QPalette::Base, Qt::green);
    qth_setWidgetColor(&edit, Qt::green, false);
    qth_setWidgetColor(&edit, Qt::red, true);
    EXPECT_TRUE(edit.palette() == wanted && edit.autoFillBackground());
    qth_setWidgetColor(&edit, QColor(), false);
    EXPECT_FALSE(edit.autoFillBackground());
}

TEST(QtHelpers, TextsSpinBoxesAndLayouts)
{
    EXPECT_EQ(qth_q2s(QString::fromUtf8("a\xC2\xB5\xE2\x82\xAC") + QChar(0)), std::string("a\xB5?\0", 4));
    QWidget parent;
    QVBoxLayout layout(&parent);
    const auto *box = qth_makeSpinBox(-3, 40, 7, &parent), *odd = qth_makeSpinBox(5, 2, -1, &parent);
    EXPECT_EQ(std::tuple(box->minimum(), box->maximum(), box->singleStep()), std::tuple(-3, 40, 7));
    EXPECT_EQ(std::tuple(odd->minimum(), odd->maximum(), odd->singleStep()), std::tuple(5, 5, 1));
    const QMargins styled = layout.contentsMargins();
    qth_setLayoutParams(&layout, 6, -1);
    EXPECT_TRUE(layout.contentsMargins() == QMargins(6, 6, 6, 6) && layout.spacing() == 6);
    qth_setLayoutParams(&layout, -1, 4);
    EXPECT_TRUE(layout.contentsMargins() == styled && layout.spacing() == 4);
}

TEST(QtHelpers, IconsAndTheProductIcon)
{
    char const *grey[] = {"1 1 1 1", "a c #808080", "a"}, *damaged[] = {"1 1 1"};
    EXPECT_TRUE(qth_makeIcon(nullptr, nullptr).isNull() && qth_makeIcon(damaged, nullptr).isNull());
    const QIcon icon = qth_makeIcon(vorel48, grey);
    EXPECT_EQ(icon.availableSizes(QIcon::Normal).value(0), QSize(48, 48));
    EXPECT_EQ(icon.availableSizes(QIcon::Disabled).value(0), QSize(1, 1));
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
