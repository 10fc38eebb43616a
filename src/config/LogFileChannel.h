/// The log's file, with a guard for the moment at which it is archived.
#pragma once

#include <memory>
#include <mutex>

#include <Poco/Exception.h>
#include <Poco/FileChannel.h>

/// The library gives its file up before it renames it. When then neither the archive
/// nor a new file can be made (a directory that has become read-only, or is gone), it
/// throws and keeps a pointer to the file it has given up; its next line would end the
/// daemon. From such a failure on this channel refuses every line with the same
/// exception and touches the library's file no more, as a full disk has it; a restart
/// of the daemon is what helps. A file that cannot be opened is no such failure: the
/// next line tries again. What the library reports in the same way is taken for one, too:
/// a first line that cannot be read for want of a descriptor and, from POCO 1.13 on, a full
/// disk (before, its stream stays bad of itself). The lock keeps the other workers' lines, which wait for the
/// library's own, from the file between the failure and its mark.
///
/// The library reads from a file's first line when it was begun, and ends the daemon
/// where it cannot: at a line that a power failure has cut, and in some versions at
/// every Sunday. Such a file is archived before it is opened. Pinned by LogRotationTest.
class LogFileChannel : public Poco::FileChannel
{
public:
	/// @throws what the library's channel throws, also when a file cannot be archived
	void open() override;

	/// @throws what the library's channel throws; after a failed archiving always that
	void log(const Poco::Message& message) override;

protected:
	~LogFileChannel() override = default;

private:
	std::mutex m_mutex;
	bool m_isBegun = false;                  ///< the file's first line has been looked at
	std::unique_ptr<Poco::Exception> m_lost; ///< why the file is given up; null: it is not
};
