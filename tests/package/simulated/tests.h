// The tests, each of which throws at what does not hold.
#pragma once

void SetsUp();
void Converts();
void SystemDisk();
void VolumesComeLate();

void Fails();
void ToolFails();
void PersonRefuses();
void RollbackFails();
void UnfitRecord();
void FailsAtEveryCall();
void PowerIsCut();

void Stops();
void Crashes();
