// What the test of this folder changes.
#pragma once

#include <string>
#include <vector>

namespace example {

enum class Colour { red, green, blue };

bool isSmall(int number);
int sum(const std::vector<int>& numbers);
int counted(); // how often sum() was called
Colour next(Colour colour);
std::string name(const std::string& given);
bool isOpen(bool locked);
int untested(int number);

} // namespace example
