#include "lab/core/SvgTimeline.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

namespace velarix::lab
{

namespace
{

constexpr double left = 150;
constexpr double right = 30;
constexpr double laneHeight = 30;
constexpr double laneStep = 46;
constexpr double labelRowHeight = 16;
constexpr double letterWidth = 6.6; ///< of a 12 pixel sans serif, on the wide side

struct Colour
{
	const char* value;
	const char* fill;
	const char* ink;
};

constexpr std::array<Colour, 10> colours{{{"master", "#2e7d32", "#ffffff"},
                                          {"slave", "#b0bec5", "#263238"},
                                          {"starting", "#ffe082", "#4e342e"},
                                          {"frozen", "#81d4fa", "#01579b"},
                                          {"no agent", "#f8bbd0", "#880e4f"},
                                          {"off", "#37474f", "#ffffff"},
                                          {"a", "#1565c0", "#ffffff"},
                                          {"b", "#ef6c00", "#ffffff"},
                                          {"a+b", "#c62828", "#ffffff"},
                                          {"none", "#fafafa", "#9e9e9e"}}};

const Colour& colourOf(const std::string& value)
{
	for (const Colour& colour : colours)
	{
		if (value == colour.value)
		{
			return colour;
		}
	}
	return colours.back();
}

std::string escaped(const std::string& text)
{
	std::string result;
	for (const char letter : text)
	{
		switch (letter)
		{
		case '<':
			result += "&lt;";
			break;
		case '>':
			result += "&gt;";
			break;
		case '&':
			result += "&amp;";
			break;
		case '"':
			result += "&quot;";
			break;
		default:
			result += letter;
		}
	}
	return result;
}

double widthOf(const std::string& text)
{
	return static_cast<double>(text.size()) * letterWidth;
}

class Drawing
{
public:
	Drawing(const Timeline& timeline, std::string title, Millis until)
	    : m_timeline(timeline), m_title(std::move(title)), m_until(std::max(until, Millis(1000)))
	{
		m_out.setf(std::ios::fixed);
		m_out.precision(1);
		m_plotWidth = std::clamp(static_cast<double>(m_until.count()) / 1000.0 * 12.0, 880.0, 3000.0);
	}

	std::string draw()
	{
		std::ostringstream body;
		m_out.swap(body);
		drawPhases(40);
		const double labels = 76;
		const double lanesTop = labels + 12 + placeLabels() * labelRowHeight;
		const double lanesBottom = lanesTop + 4 * laneStep;
		drawTrack("node a", roleTrack(HostId::a), lanesTop, HostId::a);
		drawTrack("node b", roleTrack(HostId::b), lanesTop + laneStep, HostId::b);
		drawTrack("address owner", addressTrack, lanesTop + 2 * laneStep, std::nullopt);
		drawTrack("answers client", serviceTrack, lanesTop + 3 * laneStep, std::nullopt);
		drawFaults(labels, lanesBottom - 8);
		m_out << m_overLines.str();
		drawAxis(lanesBottom);
		const double bottom = drawPhaseList(drawLegend(lanesBottom + 44));
		const std::string drawn = m_out.str();
		m_out.str({});
		open(bottom);
		return m_out.str() + drawn + "</svg>\n";
	}

private:
	struct Label
	{
		double x = 0;
		int row = 0;
		bool toTheLeft = false;
		std::string text{};
		bool repair = false;
	};

	const Timeline& m_timeline;
	std::string m_title;
	Millis m_until;
	double m_plotWidth = 0;
	std::vector<Label> m_labels;
	std::ostringstream m_out;
	std::ostringstream m_overLines; ///< words of the tracks, drawn after the lines of the faults

	double xOf(Millis time) const
	{
		return left + m_plotWidth * static_cast<double>(std::min(time, m_until).count()) /
		                  static_cast<double>(m_until.count());
	}

	void text(double x, double y, const std::string& words, const std::string& attributes)
	{
		textOn(m_out, x, y, words, attributes);
	}

	static void textOn(std::ostringstream& out, double x, double y, const std::string& words,
	                   const std::string& attributes)
	{
		out << "<text x=\"" << x << "\" y=\"" << y << "\" " << attributes << ">" << escaped(words) << "</text>\n";
	}

	void open(double bottom)
	{
		const double width = left + m_plotWidth + right;
		m_out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << bottom
		      << "\" viewBox=\"0 0 " << width << " " << bottom
		      << "\" font-family=\"DejaVu Sans, Verdana, sans-serif\" font-size=\"12\">\n"
		      << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
		text(left, 24, m_title, "font-size=\"16\" font-weight=\"bold\" fill=\"#212121\"");
	}

	std::vector<Event> eventsOf(EventKind kind) const
	{
		std::vector<Event> found = m_timeline.events();
		std::erase_if(found, [&](const Event& event) { return event.kind != kind || event.at > m_until; });
		return found;
	}

	void drawPhases(double y)
	{
		const std::vector<Event> phases = eventsOf(EventKind::phase);
		for (std::size_t index = 0; index < phases.size(); ++index)
		{
			const double from = xOf(phases[index].at);
			const double to = index + 1 < phases.size() ? xOf(phases[index + 1].at) : xOf(m_until);
			const std::string fill = index % 2 == 0 ? "#e3f2fd" : "#fff3e0";
			m_out << "<rect x=\"" << from << "\" y=\"" << y << "\" width=\"" << std::max(to - from, 0.0)
			      << "\" height=\"20\" fill=\"" << fill << "\"/>\n";
			text((from + to) / 2, y + 14, std::to_string(index + 1), "text-anchor=\"middle\" fill=\"#424242\"");
		}
	}

	/// Gives every fault and repair a label on the first row with room for it.
	/// @return the number of rows
	int placeLabels()
	{
		std::vector<double> rowEnds;
		for (const Event& event : m_timeline.events())
		{
			if ((event.kind != EventKind::fault && event.kind != EventKind::repair) || event.at > m_until)
			{
				continue;
			}
			Label label{xOf(event.at), 0, false, event.text, event.kind == EventKind::repair};
			label.text += event.host ? std::string(" (") + nameOf(*event.host) + ")" : std::string();
			label.toTheLeft = label.x + widthOf(label.text) + 6 > left + m_plotWidth + right;
			const double begin = label.toTheLeft ? label.x - widthOf(label.text) - 6 : label.x;
			while (static_cast<std::size_t>(label.row) < rowEnds.size() &&
			       rowEnds[static_cast<std::size_t>(label.row)] > begin)
			{
				++label.row;
			}
			rowEnds.resize(std::max(rowEnds.size(), static_cast<std::size_t>(label.row) + 1), 0.0);
			rowEnds[static_cast<std::size_t>(label.row)] = begin + widthOf(label.text) + 16;
			m_labels.push_back(label);
		}
		return static_cast<int>(rowEnds.size());
	}

	void drawFaults(double top, double bottom)
	{
		for (const Label& label : m_labels)
		{
			const double y = top + label.row * labelRowHeight;
			const std::string colour = label.repair ? "#1b5e20" : "#b71c1c";
			m_out << "<line x1=\"" << label.x << "\" y1=\"" << y - 8 << "\" x2=\"" << label.x << "\" y2=\"" << bottom
			      << "\" stroke=\"" << colour << "\" stroke-width=\"1.6\""
			      << (label.repair ? " stroke-dasharray=\"5,3\"" : "") << "/>\n";
			text(label.toTheLeft ? label.x - 4 : label.x + 4, y + 3, label.text,
			     "paint-order=\"stroke\" stroke=\"#ffffff\" stroke-width=\"4\" fill=\"" + colour + "\"" +
			         (label.toTheLeft ? " text-anchor=\"end\"" : ""));
		}
	}

	void drawTrack(const std::string& name, Track track, double y, std::optional<HostId> actionsOf)
	{
		text(left - 12, y + laneHeight / 2 + 4, name, "text-anchor=\"end\" fill=\"#212121\" font-weight=\"bold\"");
		for (const Interval& interval : m_timeline.intervals(track, m_until))
		{
			const Colour& colour = colourOf(interval.value);
			const double from = xOf(interval.from);
			const double width = std::max(xOf(interval.to) - from, 0.6);
			m_out << "<rect x=\"" << from << "\" y=\"" << y << "\" width=\"" << width << "\" height=\"" << laneHeight
			      << "\" fill=\"" << colour.fill << "\" stroke=\"#90a4ae\" stroke-width=\"0.5\"><title>"
			      << escaped(interval.value) << ", " << secondsText(interval.from) << " to " << secondsText(interval.to)
			      << "</title></rect>\n";
			if (widthOf(interval.value) + 8 < width)
			{
				textOn(m_overLines, from + width / 2, y + laneHeight / 2 + 4, interval.value,
				       std::string("text-anchor=\"middle\" fill=\"") + colour.ink +
				           "\" paint-order=\"stroke\" stroke=\"" + colour.fill + "\" stroke-width=\"5\"");
			}
		}
		if (actionsOf)
		{
			drawActions(*actionsOf, y + laneHeight + 5);
		}
	}

	/// One small mark per action; its words show where the viewer has pointers.
	void drawActions(HostId node, double y)
	{
		for (const Event& event : eventsOf(EventKind::action))
		{
			if (event.host == node)
			{
				m_out << "<circle cx=\"" << xOf(event.at) << "\" cy=\"" << y << "\" r=\"2.5\" fill=\"#5d4037\"><title>"
				      << secondsText(event.at) << " " << escaped(event.text) << "</title></circle>\n";
			}
		}
	}

	void drawAxis(double y)
	{
		const long seconds = m_until.count() / 1000;
		const long step = seconds <= 40 ? 2 : (seconds <= 90 ? 5 : (seconds <= 300 ? 10 : 60));
		m_out << "<line x1=\"" << left << "\" y1=\"" << y << "\" x2=\"" << left + m_plotWidth << "\" y2=\"" << y
		      << "\" stroke=\"#424242\"/>\n";
		for (long second = 0; second <= seconds; second += step)
		{
			const double x = xOf(Millis(second * 1000));
			m_out << "<line x1=\"" << x << "\" y1=\"" << y << "\" x2=\"" << x << "\" y2=\"" << y + 6
			      << "\" stroke=\"#424242\"/>\n";
			text(x, y + 20, std::to_string(second), "text-anchor=\"middle\" fill=\"#424242\"");
		}
		text(left - 12, y + 20, "seconds", "text-anchor=\"end\" fill=\"#424242\"");
	}

	/// @return the place below it
	double drawLegend(double y)
	{
		double x = 20;
		for (const Colour& colour : colours)
		{
			m_out << "<rect x=\"" << x << "\" y=\"" << y - 10 << "\" width=\"14\" height=\"12\" fill=\"" << colour.fill
			      << "\" stroke=\"#90a4ae\"/>\n";
			const std::string words = std::string(colour.value) == "a+b" ? "split-brain" : colour.value;
			text(x + 19, y, words, "fill=\"#424242\"");
			x += 30 + widthOf(words);
		}
		m_out << "<circle cx=\"" << x + 4 << "\" cy=\"" << y - 4 << "\" r=\"2.5\" fill=\"#5d4037\"/>\n";
		text(x + 12, y, "action in the node's log", "fill=\"#424242\"");
		return y + 24;
	}

	double drawPhaseList(double y)
	{
		int number = 0;
		for (const Event& phase : eventsOf(EventKind::phase))
		{
			text(left, y, std::to_string(++number) + "  " + phase.text + "  (from " + secondsText(phase.at) + ")",
			     "fill=\"#424242\"");
			y += 18;
		}
		return y;
	}
};

} // namespace

std::string toSvg(const Timeline& timeline, const std::string& title, Millis until)
{
	return Drawing(timeline, title, until).draw();
}

} // namespace velarix::lab
