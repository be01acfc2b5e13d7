// The appliance's numbered counting semaphores.
//
// One System V semaphore set per appliance (its identifier in /run/decoder/semaphores.id below the appliance
// root) holds the numbers 2000 to 2031. They outlive the processes that use them. 0, or -1 with a log line
// for a number outside the range or a failing system call. Any thread; safe between fork and exec.
#pragma once

int semaphoreInit(int id);           // makes it exist, with value 0
int semaphoreSet(int id, int value); // 0 to 32767
int semaphoreIncrease(int id);
int semaphoreDecrease(int id); // waits while the value is 0; continues after signals
