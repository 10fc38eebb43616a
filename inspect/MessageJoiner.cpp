#include "inspect/MessageJoiner.h"

#include <utility>

#include "inspect/LogReader.h"

namespace velarix::inspect
{

namespace
{

/// Appends a further line to a message.
void appendLine(LogLine& message, std::string_view line, std::uint64_t cut)
{
	RawLine text{std::move(message.text), message.cut + cut};
	text.append("\n", 1, kLongestText);
	text.append(line.data(), line.size(), kLongestText);
	message.text = std::move(text.text);
	message.cut = text.cut;
}

} // namespace

std::vector<std::string_view> piecesOf(std::string_view line)
{
	std::vector<std::string_view> pieces;
	const std::size_t behindZeros = line.find_first_not_of('\0');
	if (behindZeros != 0 && behindZeros != std::string_view::npos)
	{
		pieces.push_back(line.substr(0, behindZeros));
		line.remove_prefix(behindZeros);
	}
	for (std::size_t head = headInside(line); head != std::string_view::npos; head = headInside(line))
	{
		pieces.push_back(line.substr(0, head));
		line.remove_prefix(head);
	}
	pieces.push_back(line);
	return pieces;
}

void MessageJoiner::add(const RawLine& line)
{
	const std::vector<std::string_view> pieces = piecesOf(line.text);
	for (std::size_t at = 0; at < pieces.size(); ++at)
	{
		addPiece(pieces[at], at + 1 == pieces.size() ? line.cut : 0);
	}
}

void MessageJoiner::addPiece(std::string_view piece, std::uint64_t cut)
{
	std::optional<LogLine> message = parseHead(piece, m_clock);
	if (!message && m_begun)
	{
		appendLine(*m_begun, piece, cut);
		return;
	}
	finish();
	if (!message)
	{
		message.emplace().text = piece;
	}
	message->cut = cut;
	m_begun = std::move(message);
}

void MessageJoiner::finish()
{
	if (m_begun)
	{
		m_whole.push_back(*std::exchange(m_begun, std::nullopt));
	}
}

bool MessageJoiner::take(LogLine& message)
{
	if (m_whole.empty())
	{
		return false;
	}
	message = std::move(m_whole.front());
	m_whole.pop_front();
	return true;
}

} // namespace velarix::inspect
