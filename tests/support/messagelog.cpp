#include "tests/support/messagelog.h"

#include "platform/timesource.h"
#include "tests/support/fakeaudio.h"

#include <cstdio>
#include <mutex>

namespace {

std::mutex s_mutex;
QList<MessageLog::Line> s_lines;
QtMessageHandler s_previous = nullptr;
bool s_keep = true;

void collect(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type != QtDebugMsg) {
        s_previous(type, context, text);
        return;
    }
    MessageLog::Line line;
    line.text = text;
    line.text.remove(QLatin1Char('"'));
    line.atMs = static_cast<qint64>(tickCountMs());
    FakeAudio *world = FakeAudio::ofThread();
    line.world = world;
    if (world)
        world->note(line.text);
    const std::lock_guard<std::mutex> lock(s_mutex);
    if (s_keep)
        s_lines.append(line);
}

} // namespace

MessageLog::MessageLog(Keep keep)
{
    clear();
    s_keep = keep == Keep::Here;
    s_previous = qInstallMessageHandler(collect);
}

MessageLog::~MessageLog()
{
    qInstallMessageHandler(s_previous);
}

QList<MessageLog::Line> MessageLog::lines() const
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    return s_lines;
}

QStringList MessageLog::texts(const FakeAudio *world) const
{
    QStringList result;
    for (const Line &line : lines()) {
        if (!world || line.world == world)
            result.append(line.text);
    }
    return result;
}

int MessageLog::count(const QString &text, const FakeAudio *world) const
{
    int found = 0;
    for (const QString &line : texts(world))
        found += line.contains(text) ? 1 : 0;
    return found;
}

bool MessageLog::inOrder(const QStringList &wanted, const FakeAudio *world) const
{
    int next = 0;
    for (const QString &line : texts(world)) {
        if (next < wanted.size() && line.contains(wanted.at(next)))
            ++next;
    }
    return next == wanted.size();
}

void MessageLog::clear()
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_lines.clear();
}
