// On-screen texts and the status LED.
#pragma once

// The status LED (number 2).
void showDetectingLed(); // blinking amber: detecting, no picture
void showFailureLed();   // steady red: no picture

// "No connection to encoder NAME(ADDRESS)" on line 0, for the pending source.
void printNoConnection();

// The same and the failure LED, unless a player shows a picture.
void showNoConnectionUnlessPlaying();

// "Automatically detecting encoder ..." on line 0, for the pending source.
void printDetecting();

// The alarm of the pending source on lines 1 and 2, for "Alarm.DisplayTime" seconds.
void showAlarm();
