#include "ctl/verbs/Seconds.h"

#include <sstream>
#include <string>

namespace velarix::ctl
{

CLI::Validator secondsFrom(double least, double most)
{
	std::ostringstream refusal;
	refusal << "is no number from " << least << " to " << most;
	return {[=, text = refusal.str()](std::string& given)
	        {
		        double value = 0;
		        const bool fits = CLI::detail::lexical_cast(given, value) && value >= least && value <= most;
		        return fits ? std::string() : "\"" + given + "\" " + text;
	        },
	        ""};
}

} // namespace velarix::ctl
