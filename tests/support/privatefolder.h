// A temporary folder of the test's own.
#pragma once

#include <memory>
#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <utility>

/// While it lives, TMPDIR of this process, and of those that it starts, leads to a folder in which
/// no other program's socket is. Not for two threads, nor for two lives that overlap other than one
/// within the other.
class PrivateFolder {
public:
    /// A new folder, which is removed with what is in it.
    PrivateFolder()
        : PrivateFolder(std::make_unique<QTemporaryDir>())
    {
    }

    /// A folder that there is, which stays.
    explicit PrivateFolder(const QString &path)
        : m_path(path)
    {
        qputenv("TMPDIR", QFile::encodeName(m_path));
    }

    ~PrivateFolder()
    {
        if (m_wasSet)
            qputenv("TMPDIR", m_before);
        else
            qunsetenv("TMPDIR");
    }

    PrivateFolder(const PrivateFolder &) = delete;
    PrivateFolder &operator=(const PrivateFolder &) = delete;

    QString path() const { return m_path; }
    QString filePath(const QString &name) const { return m_path + QLatin1Char('/') + name; }

private:
    explicit PrivateFolder(std::unique_ptr<QTemporaryDir> made)
        : PrivateFolder(made->path())
    {
        if (!made->isValid())
            qFatal("no temporary folder: %s", qPrintable(made->errorString()));
        m_made = std::move(made);
    }

    const bool m_wasSet = qEnvironmentVariableIsSet("TMPDIR");
    const QByteArray m_before = qgetenv("TMPDIR");
    const QString m_path;
    std::unique_ptr<QTemporaryDir> m_made;
};
