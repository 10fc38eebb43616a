/// The text format that Prometheus reads.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace velarix::ctl
{

/// Collects samples; the first one of a family puts its HELP and TYPE lines before
/// it, so that a family without samples is left out.
class Exposition
{
public:
	using Labels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

	void gauge(std::string_view name, std::string_view help) { family(name, help, "gauge"); }
	/// @param name ends in "_total"
	void counter(std::string_view name, std::string_view help) { family(name, help, "counter"); }

	/// A sample of the family begun last.
	void sample(double value, Labels labels = {});

	/// A family of one sample; nothing at all for a value that is not known.
	void single(std::string_view name, std::string_view help, std::optional<double> value)
	{
		if (value)
		{
			gauge(name, help);
			sample(*value);
		}
	}

	const std::string& text() const { return m_text; }

private:
	std::string m_text;
	std::string m_name;
	/// The lines before the first sample of the family.
	std::string m_head;

	void family(std::string_view name, std::string_view help, std::string_view type);
};

} // namespace velarix::ctl
