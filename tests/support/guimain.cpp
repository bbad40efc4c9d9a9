// main of the tests that need a QApplication.
#include <QApplication>

#include <gtest/gtest.h>

#ifdef __SANITIZE_ADDRESS__
// Libraries stay loaded to the end: what only an unloaded plug-in pointed to would count as a leak, from nowhere.
extern "C" __attribute__((visibility("default"))) int dlclose(void *)
{
    return 0;
}
#endif

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
