#include "Configuraion.h"

#include <Poco/Exception.h>
#include <Poco/FileStream.h>

#include "VelarixLog.h"
#include "velarix/fatal.h"
#include "velarix/velarix.h"

namespace
{

constexpr char kSource[] = "Configuraion";

} // namespace

Configuraion* Configuraion::pConf = nullptr;

Configuraion::Configuraion(const std::string& path)
{
	loadFile(path);
}

Configuraion* Configuraion::getInstance(const std::string& path)
{
	try
	{
		if (pConf == nullptr)
		{
			pConf = new Configuraion(path);
		}
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 32, "%s", exc.displayText().c_str());
		velarix::fatal("0", kSource, 33, "static Configuraion* Configuraion::getInstance(const std::string&)");
	}
	return pConf;
}

bool Configuraion::loadFile(const std::string& path)
{
	try
	{
		// The library's parser waits for the end of the file alone. What can be opened
		// and not read to its end, a directory or a disk that fails, has to throw.
		Poco::FileInputStream file(path);
		file.exceptions(std::ios::badbit);
		m_pFile = new Poco::Util::IniFileConfiguration(file);
	}
	catch (const Poco::Exception&)
	{
		velarix::fatal("0", kSource, 50, "bool Configuraion::loadFile(const std::string&)");
	}
	return true;
}

std::string Configuraion::getString(const std::string& key)
{
	try
	{
		return m_pFile->getString(key);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 65, "%s", exc.displayText().c_str());
		velarix::fatal("0", kSource, 66, "std::string Configuraion::getString(const std::string&)");
	}
}

int Configuraion::getInt(const std::string& key)
{
	try
	{
		return m_pFile->getInt(key);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 82, "%s", exc.displayText().c_str());
		velarix::fatal("0", kSource, 83, "int Configuraion::getInt(const std::string&)");
	}
}

bool Configuraion::getBool(const std::string& key)
{
	try
	{
		return m_pFile->getBool(key);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 99, "%s", exc.displayText().c_str());
		velarix::fatal("0", kSource, 100, "bool Configuraion::getBool(const std::string&)");
	}
}

void Configuraion::setInt(const std::string& key, int value)
{
	try
	{
		m_pFile->setInt(key, value);
	}
	catch (const Poco::Exception& exc)
	{
		velarixLog->error(kSource, 113, "%s", exc.displayText().c_str());
		velarix::fatal("0", kSource, 114, "void Configuraion::setInt(const std::string&, int)");
	}
}

void Configuraion::setString(const std::string& key, std::string& value)
{
	m_pFile->setString(key, value);
}
