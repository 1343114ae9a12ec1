#pragma once

#include <string>
#include <vector>

#include "host/watch/platform_calls.h"

// Runs three boots, in which every loader runs and every kind of file is touched, on the sample
// device in an empty private root. Returns what happened, in order, as "[step] text": what was
// handed over, what `observer`, which sees the library's calls, noted, and what is in the state
// files after each boot.
std::vector<std::string> RunScenario(watch::Observer* observer);

// Adds to what happened. The bind thread does so too, but only while the scenario waits for it.
void Note(const std::string& text);

std::string CurrentStep();
