// What the host says on its standard error.
#pragma once

#include <string>

#include "platform/kel/Log.h"

void say(std::string const& text);

// A log sink for hosts without a service manager that keeps their standard error.
void printEvent(Kel::LogEvent const& event);
