#pragma once

#include <string>
#include <vector>

// Runs three boots, in which every loader runs and every kind of file is touched, on the sample
// device in an empty private root. Returns what happened, in order, as "[step] text": what was
// handed over, what the caller noted, and what is in the state files after each boot.
std::vector<std::string> RunScenario();

// Adds to what happened. Thread-safe, like the next, as the bind thread does so too.
void Note(const std::string& text);

std::string CurrentStep();
