// SPDX-License-Identifier: MIT
// The worker: compiles the packages of the AOT queue, one at a time, front first, until the queue
// is empty, a halt is requested, storage runs out or the CPU is busy. Whoever starts it has set the
// status to THREAD_STATUS_RUNNING; the worker sets the status that follows.
// Runs on a thread of its own, at most one at a time; holds no lock while it compiles.
#pragma once

void aot_queue_process();
