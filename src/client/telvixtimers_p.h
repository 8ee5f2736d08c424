#pragma once

class Telvix;

/// Intervals of the session's timers, in milliseconds. The defaults are the
/// protocol's; only tests shorten them, through setTelvixTimerIntervals().
struct TelvixTimerIntervals
{
    int keepAliveMs = 30000;
    int keepAliveAckMs = 15000;
    int guiKeepAliveMs = 30000;
    int periodicDataMs = 300000;
};

/// Replaces the intervals used from the next start of each timer on. Not part
/// of the installed interface; call it before connectToServer().
void setTelvixTimerIntervals(Telvix* client, const TelvixTimerIntervals& intervals);
