// Replays the timeline of a fake audio system against the rules of a start and of a session.
#pragma once

#include "tests/support/fakeaudio.h"

#include <QHash>

/// What a timeline contained, and what in it was against the rules.
struct Replay {
    QStringList complaints;
    int starts = 0; ///< that came to Step 1
    int startsFailed = 0;
    int announced = 0; ///< formats
    int sessionsEnded = 0;
    int sessionsOpen = 0; ///< that the timeline's end cuts off
    int sessionErrors = 0; ///< failure codes that the worker had to report
    int failures = 0; ///< calls of the failure handler
    int stopsAnswered = 0;
    int stopsPassedOver = 0;
    int restarts = 0;
    int fallbacks = 0; ///< failures that have to be answered by a start on the default device
    bool lastStartSucceeded = false;
    QString lastDevice; ///< that the last successful start activated
    bool lastRecovered = false; ///< it came up only by falling back to the default device
};

/// Every call and every message of every start (from Step 1 to its end) and of every session (from
/// GetService to its end) must be the one that follows from the result of the call before, after
/// the prescribed pause. The pauses before restarts, after the old client's stop and of a wait in
/// vain must have their length too; in virtual time to the millisecond. Of two starts at the same
/// moment the one that stands later in the timeline is the later one. The timeline must not end
/// within a start. A start on an endpoint whose name is in `endpoints` (friendly names to ids) must
/// open that endpoint.
Replay replay(const QList<FakeCallRecord> &timeline, const QHash<QString, QString> &endpoints = {});
