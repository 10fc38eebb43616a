#include "Utilities.h"

#include <array>
#include <ctime>
#include <sstream>

#include "Utill.h"

bool stringFinder(std::string& text, std::string& pattern)
{
	return text.find(pattern, 0) != std::string::npos;
}

double string2double(std::string& text)
{
	std::istringstream stream(text, std::ios::in);
	double value = 0;
	stream >> value;
	return value;
}

std::string getCurrentTime()
{
	const std::time_t now = std::time(nullptr);
	std::tm local{};
	::localtime_r(&now, &local);
	std::array<char, 15> text{};
	std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &local);
	return text.data();
}

double calculateDefferentTime(std::string& first, std::string& second)
{
	return string2double(second) - string2double(first);
}

std::string boolToString(bool value)
{
	return value ? "1" : "0";
}

std::string Utill::intToString(int value)
{
	std::ostringstream stream;
	stream << value;
	return stream.str();
}
