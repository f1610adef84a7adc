// The companion's command line: one sub-command per row of a table.
#pragma once

/// Runs the sub-command that the arguments name. The exit code is the sub-command's own; 2 for a
/// usage error, and when it could not do its work. The reason is on standard error.
int RunVoltisctl(int argc, char** argv);
