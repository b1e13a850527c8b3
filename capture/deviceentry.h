// One line of the device catalogue.
#pragma once

#include <QString>

struct DeviceEntry {
    /// Display text: the endpoint's friendly name, with " (当前默认)" appended for the current
    /// default render endpoint. Devices are chosen by this text.
    QString name;
    /// Endpoint id; empty for the first entry, which means: follow the default.
    QString id;
};
