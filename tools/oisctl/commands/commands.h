#pragma once
// The subcommands, each in a file of its own; commands.cpp lists them.

#include "cli/command.h"

namespace oisctl {

Command describeSession();
Command describeOperation();
Command describeMode();
Command describeDecode();
Command describeSpy();
Command describeCompare();
Command describeReplay();
Command describeTimeline();
Command describeProbe();
Command describeCompliance();
Command describeCalibrate();
Command describeFirmwareUpdate();
Command describeRegisters();
Command describeDetectDefect();
Command describeRecord();
Command describePlot();
Command describeStats();
Command describeReport();
Command describeExport();
Command describeDump();
Command describeSamples();
Command describeModules();
Command describeScenarios();
Command describeProperties();
Command describeFaults();

}  // namespace oisctl
