#pragma once

#include <QString>

class QImage;

/// Saves a picture as PNG, whole or not at all: what was there before stays until the new one is
/// written. On failure false, and why in *error, one line for a person.
bool savePicture(const QImage &picture, const QString &fileName, QString *error);
