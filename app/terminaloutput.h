#pragma once

// Everything the command line prints passes through here. Task titles are prompts someone
// typed, project names are folder names, messages quote paths: any of them may hold control
// sequences that would retitle, recolour or rewrite the person's terminal. They are shown as
// visible escapes, never obeyed.

#include <QString>

namespace taskrack {

// `text` with every control character except line feed and tab written as a visible escape:
// C0 and DEL as "\xHH", C1 as "\u00HH".
QString visibleControls(const QString &text);

// To standard output, made visible and flushed.
void writeOut(const QString &text);
// "taskrack: " + text + a line feed, to standard error, made visible.
void writeError(const QString &text);
// A sentence of the application's own, as it stands, + a line feed, to standard error.
void writeNotice(const QString &text);

} // namespace taskrack
