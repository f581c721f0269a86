#include <csignal>
#include <gtest/gtest.h>
#include <QLineEdit>
#include <QSet>
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
    EXPECT_TRUE(edit.palette() == wanted && !edit.autoFillBackground());
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
    const QSpinBox *box = qth_makeSpinBox(-3, 40, 7, &parent), *odd = qth_makeSpinBox(5, 2, -1, nullptr);
    EXPECT_TRUE(box->parent() == &parent && box->minimum() == -3 && box->maximum() == 40 &&
                box->singleStep() == 7);
    EXPECT_TRUE(odd->parent() == nullptr && odd->maximum() == 5 && odd->singleStep() == 1);
    delete odd;
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
    EXPECT_STREQ(vorel48[0], "48 48 234 2");
    const QImage image = QPixmap(vorel48).toImage();
    QSet<QRgb> colours;
    for (int i = 0; i < 48 * 48; ++i) colours.insert(image.pixel(i % 48, i / 48));
    EXPECT_EQ(colours.size(), 234);
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
