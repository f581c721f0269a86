#include <cstdlib>
#include <gtest/gtest.h>
#include <QApplication>

// Leaks of the toolkit's libraries (the offscreen platform never deletes its screen), for a test program that
// is run without the environment of the preset. The sanitizer's library has to see it.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig\nleak:libQt5\nleak:libglib\nleak:libqoffscreen\n";
}

// One main for all test programs. Test discovery runs them at build time, without the environment that
// CTest sets, so the platform is chosen here; QApplication sets the C locale from the environment, as it
// does in an application.
int main(int argc, char** argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    ::testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
