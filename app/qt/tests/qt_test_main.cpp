// The Qt tests run inside a QCoreApplication, as the model does in the application; no display.
#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
