// How many descriptors are left.
#include "platform/descriptors.h"

#include <limits>
#include <QFile>
#include <QTest>

class DescriptorsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void countsFreeDescriptors();
};

void DescriptorsTest::countsFreeDescriptors()
{
    const int before = freeDescriptors();
    QVERIFY(before > 0);
    QFile file(QCoreApplication::applicationFilePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const int unlimited = std::numeric_limits<int>::max();
    QCOMPARE(freeDescriptors(), before == unlimited ? unlimited : before - 1);
}

QTEST_GUILESS_MAIN(DescriptorsTest)
#include "tst_descriptors.moc"
