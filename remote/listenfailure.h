#pragma once

#include <QString>

/// Why a local server of that name could not listen, for a person: "/tmp/name is a folder". Asks
/// the folder for temporary files, where sockets are on hosts where they are files; falls back on
/// what the server itself says.
QString listenFailure(const QString &name, const QString &serverError);
