// A test program in virtual time.
#pragma once

#include "tests/support/virtualtime.h"

#include <QtTest>

/// QTEST_GUILESS_MAIN for a test that lives in virtual time.
#define VIRTUAL_TIME_MAIN(TestClass) VIRTUAL_TIME_MAIN_WITH(QCoreApplication, TestClass)

/// The same with an application object of another class. The time is never destroyed: threads may
/// outlive the last static object.
#define VIRTUAL_TIME_MAIN_WITH(Application, TestClass)                                             \
    int main(int argc, char **argv)                                                                \
    {                                                                                              \
        new VirtualTime;                                                                           \
        Application app(argc, argv);                                                               \
        TestClass test;                                                                            \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
