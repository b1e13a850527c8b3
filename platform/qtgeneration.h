#pragma once

#include <QAbstractEventDispatcher>
#include <QLibraryInfo>
#include <QList>
#include <QMetaType>
#include <QProcess>
#include <QString>
#include <QTextStream>
#include <QVector>

#if QT_VERSION_MAJOR >= 6
#include <QStringConverter>
#include <QStringView>
#else
#include <QStringRef>
#include <QTextCodec>
#endif

// All that differs between Qt 5.15 and Qt 6 in the sources: nothing else asks which one it is.
// Which one is used, and what differs outside the sources, says cmake/TonewellQt.cmake. The format
// of the remote-objects protocol differs too; each has a file in remote/.

#if QT_VERSION_MAJOR >= 6

/// What QWidget::nativeEvent answers with.
using NativeEventResult = qintptr;

/// An event dispatcher that needs none of what only one of them asks for, and how it hears of the
/// interval of a timer.
using BareEventDispatcher = QAbstractEventDispatcher;
using TimerIntervalMs = qint64;

/// A piece of a text that lives elsewhere.
using TextPiece = QStringView;

inline QList<TextPiece> splitText(const QString &text, const QString &separator)
{
    return QStringView(text).split(separator);
}

/// Whatever the local encoding is, the stream writes UTF-8.
inline void writeUtf8(QTextStream *stream)
{
    stream->setEncoding(QStringConverter::Utf8);
}

/// While it lives, the local encoding is the one of that name, where Qt can be told so: that of Qt
/// 6 is the system's, on Linux UTF-8.
class LocalEncoding {
    Q_DISABLE_COPY(LocalEncoding)

public:
    explicit LocalEncoding(const char *) { }
    ~LocalEncoding() { }
};

/// The number of the meta-type of that name; QMetaType::UnknownType if there is none.
inline int metaTypeNamed(const char *name)
{
    return QMetaType::fromName(name).id();
}

/// The folder of Qt's own translations.
inline QString qtTranslations()
{
    return QLibraryInfo::path(QLibraryInfo::TranslationsPath);
}

#ifndef Q_OS_WIN
/// A process that prepares itself, between the fork and the program.
class PreparedProcess : public QProcess {
public:
    PreparedProcess()
    {
        setChildProcessModifier([this] { prepare(); });
    }

protected:
    /// Runs in the new process, where only calls that a signal handler may make are safe.
    virtual void prepare() = 0;
};
#endif

#else

using NativeEventResult = long;

class BareEventDispatcher : public QAbstractEventDispatcher {
public:
    bool hasPendingEvents() override { return false; }
    void flush() override { }
#ifdef Q_OS_WIN
    bool registerEventNotifier(QWinEventNotifier *) override
    {
        return true;
    }
    void unregisterEventNotifier(QWinEventNotifier *) override { }
#endif
};
using TimerIntervalMs = int;

using TextPiece = QStringRef;

inline QVector<TextPiece> splitText(const QString &text, const QString &separator)
{
    return text.splitRef(separator);
}

inline void writeUtf8(QTextStream *stream)
{
    stream->setCodec("UTF-8");
}

class LocalEncoding {
    Q_DISABLE_COPY(LocalEncoding)

public:
    explicit LocalEncoding(const char *name)
    {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName(name));
    }
    ~LocalEncoding() { QTextCodec::setCodecForLocale(m_before); }

private:
    QTextCodec *const m_before = QTextCodec::codecForLocale();
};

inline int metaTypeNamed(const char *name)
{
    return QMetaType::type(name);
}

inline QString qtTranslations()
{
    return QLibraryInfo::location(QLibraryInfo::TranslationsPath);
}

#ifndef Q_OS_WIN
class PreparedProcess : public QProcess {
protected:
    virtual void prepare() = 0;
    void setupChildProcess() final { prepare(); }
};
#endif

#endif
