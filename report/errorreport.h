// The common head of every report the program writes.
#pragma once

#include <QString>

/// Banner, time, application, exception, system and runtime facts, up to and including the end
/// banner; callers append their own sections. The message may hold line breaks, which are kept.
/// A system query that fails leaves its lines out. Callable from any thread, a crashing one
/// included; locks nothing itself and changes no shared state, but allocates memory: after a fault
/// inside the allocator it may never return, and the crash handlers' time limit has to end it.
QString buildErrorReport(const QString &exceptionType, const QString &exceptionMessage);
