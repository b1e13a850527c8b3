// Which bytes of a consumer are right, and where a frame ends: on bytes alone.
#include "remote/consumerframes.h"
#include "tests/remote/frames.h"

#include <limits>
#include <QDir>
#include <QFile>
#include <QTest>

namespace {

constexpr int kLengthBytes = 4;

std::string_view view(const QByteArray &bytes)
{
    return {bytes.constData(), static_cast<std::size_t>(bytes.size())};
}

ConsumerFrames consumer()
{
    return ConsumerFrames(frames::tonewell());
}

/// What a consumer that has sent nothing yet may expect of these bytes.
int received(const QByteArray &bytes)
{
    return consumer().receive(view(bytes));
}

QByteArray recorded(const char *name, const QString &corpus = QStringLiteral(CORPUS))
{
    QFile file(corpus + QLatin1Char('/') + QLatin1String(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The frames of a recorded session.
QList<QByteArray> split(const QByteArray &session)
{
    QList<QByteArray> result;
    for (int at = 0; at < session.size(); at += static_cast<int>(result.constLast().size()))
        result.append(session.mid(at, kLengthBytes + frames::numberAt<qint32>(session, at)));
    return result;
}

void addSessions()
{
    QTest::addColumn<QByteArray>("session");
    for (const char *name : {"typed.bin", "heartbeat.bin", "dynamic.bin", "python.bin"})
        QTest::newRow(name) << recorded(name);
}

/// Bytes of a call before its text, the text's length not included.
int callHead()
{
    return static_cast<int>(frames::call(QString()).size()) - kLengthBytes - 8;
}

} // namespace

class ConsumerFramesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theseFramesAreWhatReplicasSend();
    void recordedSessionsAreRight_data();
    void recordedSessionsAreRight();
    void theOtherGenerationIsWrong_data();
    void theOtherGenerationIsWrong();
    void onlyTextsMayDiffer_data();
    void onlyTextsMayDiffer();
    void otherKindsAreWrong();
    void otherNamesAreWrong();
    void otherCallsAreWrong_data();
    void otherCallsAreWrong();
    void textsAreAsLongAsTheySay();
    void theLongestFrame();
    void anEmptyFrameIsWrong();
    void attachedOnceUntilDetached();
    void whatWasWrongDoesNotCount();
    void anotherName();
};

void ConsumerFramesTest::theseFramesAreWhatReplicasSend()
{
    using namespace frames;
    QCOMPARE(recorded("typed.bin"),
             attach() + call(QStringLiteral("hello")) + call(QString()) + call(QStringLiteral(""))
                 + detach() + attach());
    QCOMPARE(recorded("dynamic.bin"), attach(true) + call(QStringLiteral("hello")));
    QVERIFY(recorded("heartbeat.bin").contains(attach() + ping()));
}

void ConsumerFramesTest::recordedSessionsAreRight_data()
{
    addSessions();
}

void ConsumerFramesTest::recordedSessionsAreRight()
{
    QFETCH(QByteArray, session);
    const QList<QByteArray> expected = split(session);
    QVERIFY(expected.size() >= 2);
    ConsumerFrames consumer = ::consumer();
    for (const QByteArray &frame : expected) {
        // Nothing is said before it is whole, and what comes behind makes no difference.
        for (int size = 0; size < frame.size(); ++size)
            QCOMPARE(consumer.receive(view(frame.left(size))), 0);
        QCOMPARE(consumer.receive(view(frame + "behind")), frame.size());
    }
}

void ConsumerFramesTest::theOtherGenerationIsWrong_data()
{
    addSessions();
}

// From the first length on, which is far too large in the other order.
void ConsumerFramesTest::theOtherGenerationIsWrong()
{
    const QByteArray other = recorded(QTest::currentDataTag(), QStringLiteral(OTHER_CORPUS));
    QVERIFY(!other.isEmpty());
    QCOMPARE(received(other), ConsumerFrames::kWrong);
}

void ConsumerFramesTest::onlyTextsMayDiffer_data()
{
    addSessions();
}

// Every bit of every frame is turned.
void ConsumerFramesTest::onlyTextsMayDiffer()
{
    QFETCH(QByteArray, session);
    ConsumerFrames before = consumer();
    for (const QByteArray &frame : split(session)) {
        const bool call = frames::kindOf(frame) == frames::kCall;
        const bool attach = frames::kindOf(frame) == frames::kAttach;
        for (int bit = 0; bit < 8 * frame.size(); ++bit) {
            QByteArray turned = frame;
            turned[bit / 8] = static_cast<char>(turned[bit / 8] ^ (1 << bit % 8));
            const int byte = bit / 8;
            const bool text = call && byte >= callHead() + kLengthBytes && byte < frame.size() - 8;
            const bool dynamic = attach && bit == 8 * (frame.size() - 1);
            ConsumerFrames after = before;
            const int result = after.receive(view(turned));
            if (text || dynamic)
                QCOMPARE(result, frame.size());
            else if (byte < kLengthBytes)
                QVERIFY2(result <= 0, qPrintable(QString::number(bit)));
            else
                QVERIFY2(result == ConsumerFrames::kWrong, qPrintable(QString::number(bit)));
        }
        QCOMPARE(before.receive(view(frame)), frame.size());
    }
}

void ConsumerFramesTest::otherKindsAreWrong()
{
    for (int kind = 0; kind <= std::numeric_limits<quint16>::max(); ++kind) {
        for (QByteArray frame : {frames::attach(), frames::detach(), frames::ping(),
                                 frames::call(QStringLiteral("x"))}) {
            const quint16 right = frames::kindOf(frame);
            // To detach and to ask for life are the same but for the kind.
            const auto alike = [](int k) { return k == frames::kDetach || k == frames::kPing; };
            frame.replace(kLengthBytes, 2, frames::bytes(static_cast<quint16>(kind)));
            const bool fine = kind == right || (alike(kind) && alike(right));
            QCOMPARE(received(frame), fine ? frame.size() : ConsumerFrames::kWrong);
        }
    }
}

void ConsumerFramesTest::otherNamesAreWrong()
{
    for (const char *name : {"", "tonewell", "Tonewel", "Tonewelll", "CommonInterface"}) {
        const QString other = QLatin1String(name);
        QCOMPARE(received(frames::attach(false, other)), ConsumerFrames::kWrong);
        QCOMPARE(received(frames::detach(other)), ConsumerFrames::kWrong);
        QCOMPARE(received(frames::ping(other)), ConsumerFrames::kWrong);
    }
    QCOMPARE(received(frames::ping(QString())), ConsumerFrames::kWrong);
}

void ConsumerFramesTest::otherCallsAreWrong_data()
{
    using namespace frames;
    QTest::addColumn<QByteArray>("frame");
    const QVariantList text {QStringLiteral("x")};
    for (const int index : {1, 2, -1, 1000000, -2147483647})
        QTest::addRow("index %d", index) << callWith(text, index);
    for (const int kind : {1, 2, 3, -1}) // reading and writing of properties, for instance
        QTest::addRow("access %d", kind) << callWith(text, 0, kind);
    QTest::newRow("no argument") << callWith(QVariantList());
    QTest::newRow("two arguments") << callWith(QVariantList {text[0], text[0]});
    QTest::newRow("two announced") << callWith(bytes(static_cast<quint32>(2), text[0]));
    QTest::newRow("none announced") << callWith(bytes(static_cast<quint32>(0), text[0]));
    QTest::newRow("4 billion announced") << callWith(bytes(static_cast<quint32>(0xFFFFFFF0)));
    const std::pair<const char *, QVariant> others[] = {
        {"nothing", {}},
        {"number", 7},
        {"bytes", QByteArray("xy")},
        {"list", text},
        {"texts", QStringList {QStringLiteral("x")}},
        {"map", QVariantMap {{QStringLiteral("x"), 1}}},
        {"list of lists", QVariantList {QVariantList {QVariantList {}}}},
    };
    for (const auto &[name, value] : others)
        QTest::newRow(name) << callWith(QVariantList {value});
    QTest::newRow("null, as the variant says")
        << callWith(bytes(static_cast<quint32>(1), static_cast<quint32>(QMetaType::QString),
                          static_cast<qint8>(1), QString()));
    const QByteArray whole = call(QStringLiteral("text")).mid(kLengthBytes);
    QTest::newRow("one byte more") << frame(whole + '\xff');
    for (int size = 0; size < whole.size(); ++size)
        QTest::addRow("cut after %d bytes", size) << frame(whole.left(size));
    const QByteArray cut = whole.chopped(8);
    QTest::newRow("wants a reply")
        << frame(cut + bytes(static_cast<qint32>(0), static_cast<qint32>(-1)));
    QTest::newRow("of a property")
        << frame(cut + bytes(static_cast<qint32>(-1), static_cast<qint32>(0)));
}

void ConsumerFramesTest::otherCallsAreWrong()
{
    QFETCH(QByteArray, frame);
    QCOMPARE(received(frame), ConsumerFrames::kWrong);
}

void ConsumerFramesTest::textsAreAsLongAsTheySay()
{
    const QByteArray head = frames::call(QString()).mid(kLengthBytes).chopped(kLengthBytes + 8);
    const QByteArray end(8, '\xff');
    for (int size = 0; size <= 16; ++size) {
        for (quint32 announced = 0; announced <= 20; ++announced) {
            const QByteArray frame =
                frames::frame(head + frames::bytes(announced) + QByteArray(size, '\0') + end);
            const bool fine = announced == static_cast<quint32>(size) && size % 2 == 0;
            QCOMPARE(received(frame), fine ? frame.size() : ConsumerFrames::kWrong);
        }
        const QByteArray null = frames::frame(head + frames::bytes(static_cast<quint32>(0xFFFFFFFF))
                                              + QByteArray(size, '\0') + end);
        QCOMPARE(received(null), size == 0 ? null.size() : ConsumerFrames::kWrong);
        const QByteArray huge = frames::frame(head + frames::bytes(static_cast<quint32>(0xFFFFFFFE))
                                              + QByteArray(size, '\0') + end);
        QCOMPARE(received(huge), ConsumerFrames::kWrong);
    }
}

void ConsumerFramesTest::theLongestFrame()
{
    const int empty = frames::call(QStringLiteral("")).size() - kLengthBytes;
    const int odd = (ConsumerFrames::kLongestBytes - empty) % 2;
    const QString text((ConsumerFrames::kLongestBytes - empty) / 2, QLatin1Char('x'));
    const QByteArray longest = frames::call(text);
    QVERIFY(longest.size() == ConsumerFrames::kLongestBytes + kLengthBytes - odd);
    QCOMPARE(received(longest), longest.size());
    QCOMPARE(received(frames::call(text + QLatin1Char('x'))), ConsumerFrames::kWrong);

    // Said as soon as the length is there.
    const auto limit = static_cast<quint32>(ConsumerFrames::kLongestBytes);
    QCOMPARE(received(frames::bytes(limit)), 0);
    for (const quint32 length : {limit + 1, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
        QCOMPARE(received(frames::bytes(length)), ConsumerFrames::kWrong);
}

void ConsumerFramesTest::anEmptyFrameIsWrong()
{
    QCOMPARE(received(QByteArray()), 0);
    QCOMPARE(received(frames::frame(QByteArray())), ConsumerFrames::kWrong);
}

void ConsumerFramesTest::attachedOnceUntilDetached()
{
    for (const bool dynamic : {false, true}) {
        ConsumerFrames consumer = ::consumer();
        const QByteArray attach = frames::attach(dynamic);
        const QByteArray detach = frames::detach();
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(consumer.receive(view(attach)), attach.size());
            QCOMPARE(consumer.receive(view(detach)), detach.size());
        }
        QCOMPARE(consumer.receive(view(detach)), detach.size()); // which changes nothing
        QCOMPARE(consumer.receive(view(attach)), attach.size());
        for (const bool again : {false, true})
            QCOMPARE(consumer.receive(view(frames::attach(again))), ConsumerFrames::kWrong);
    }
}

void ConsumerFramesTest::whatWasWrongDoesNotCount()
{
    ConsumerFrames consumer = ::consumer();
    QCOMPARE(consumer.receive(view(frames::attach(false, QStringLiteral("x")))),
             ConsumerFrames::kWrong);
    QCOMPARE(consumer.receive(view(frames::attach().chopped(1))), 0);
    QCOMPARE(consumer.receive(view(frames::attach())), frames::attach().size());
}

void ConsumerFramesTest::anotherName()
{
    ConsumerFrames consumer(QStringLiteral("Other"));
    QCOMPARE(consumer.receive(view(frames::attach())), ConsumerFrames::kWrong);
    const QByteArray other = frames::attach(true, QStringLiteral("Other"));
    QCOMPARE(consumer.receive(view(other)), other.size());
}

QTEST_APPLESS_MAIN(ConsumerFramesTest)
#include "tst_consumerframes.moc"
