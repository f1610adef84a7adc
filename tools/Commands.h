// The companion's command line: one sub-command per row of a table.
#pragma once

/// Runs the sub-command that the arguments name. The exit code is the sub-command's own; 3 when it
/// could not do its work (the reason is on standard error), CLI11's own codes for a command line
/// that it cannot parse.
int RunVoltisctl(int argc, char** argv);
