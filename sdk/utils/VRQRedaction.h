#pragma once

#include <string>
#include <string_view>

// Secrets (the session token, the metric signing key, signatures) never reach
// a log line or an uploaded log as they are: these helpers put "***" in their
// place, keeping everything around them.

// "***" for a secret that has a value, "" for an empty one (so that a line
// still shows whether there was one).
std::string vrq_redacted(std::string_view secret);

// A text with the values of its secret members hidden: JSON string members
// "token", "metric_key" and "sig", and URL query members token=, stream_id=
// and sig=.
std::string vrq_redactedText(std::string_view text);
