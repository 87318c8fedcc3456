// The script timers: each pulse of the runtime puts an empty dictionary into the queue `pulse_1`, `pulse_7`
// or `pulse_31`, where there is one. A script that wants a timer makes the queue and gives it a worker.
#pragma once

// What the pulse calls; RuntimeError "Queue does not exist" where nobody wants the timer.
void IPE_PulseOne();
void IPE_PulseSeven();
void IPE_PulseThirtyOne();
