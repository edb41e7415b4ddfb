#include "KatdConf/HttpProxyConf.h"

#include <memory>

#include "KatdConf/ConfReader.h"
#include "KatdUtil/IniUtils.h"
#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "KatdConf";

constexpr const char* section = "Connectivity";

}  // namespace

void HttpProxyConf::loadConfig(const char* path) {
    QOR_SPACE::Monitor monitor(lock);
    if (valid) return;
    IniUtils ini(path);
    if (!ini.opened) {
        ERR_MSG("fail to open http proxy config file [%s]", Utils::shown(path));
        return;
    }
    if (!readAccess(ini, path) || !readAddress(ini, path)) return;
    readAuth(ini, path);
    if (proxyAuth == "NoAuth") {
        valid = true;
        return;
    }
    std::string value;
    if (!ConfReader::readValue(ini, section, "ProxyUserName", value)) {
        ERR_MSG("fail to read ProxyUserName from [%s]", path);
        return;
    }
    proxyUserName = value;
    valid = true;
    readPassword(ini, path);
}

bool HttpProxyConf::readAccess(IniUtils& ini, const char* path) const {
    std::string value;
    if (!ConfReader::readValue(ini, section, "ProxyAccess", value)) {
        ERR_MSG("fail to read ProxyAccess from [%s]", path);
        return false;
    }
    if (value == "1") return true;
    if (value == "0") {
        DBG_MSG("ProxyAccess == [%s]", value.c_str());
    } else {
        ERR_MSG("bad value of ProxyAccess [%s]", value.c_str());
    }
    return false;
}

bool HttpProxyConf::readAddress(IniUtils& ini, const char* path) {
    std::string value;
    if (!ConfReader::readValue(ini, section, "ProxyServerAddress", value)) {
        ERR_MSG("fail to read ProxyServerAddress from [%s]", path);
        return false;
    }
    proxyServerAddress = value;
    if (!ConfReader::readValue(ini, section, "ProxyPort", value)) {
        DBG_MSG("fail to read ProxyPort from [%s]", path);
    } else if (Utils::isDigit(value.c_str())) {
        proxyPort = value;
    } else {
        ERR_MSG("bad value of ProxyPort [%s], default value [80] will be used", value.c_str());
    }
    return true;
}

void HttpProxyConf::readAuth(IniUtils& ini, const char* path) {
    std::string value;
    if (!ConfReader::readValue(ini, section, "ProxyAuth", value)) {
        DBG_MSG("fail to read ProxyAuth from [%s]", path);
    } else if (value == "NoAuth" || value == "Basic") {
        proxyAuth = value;
    } else {
        ERR_MSG("bad value of ProxyAuth [%s], default value [NoAuth] will be used", value.c_str());
    }
}

void HttpProxyConf::readPassword(IniUtils& ini, const char* path) {
    std::string value;
    if (ConfReader::findValue(ini, section, "ProxyEncodedPassword", value)) {
        if (value.empty()) return;
        DBG_MSG("value[%s]", value.c_str());
        const std::unique_ptr<char[]> decoded(Utils::hex2str(value.c_str()));
        if (decoded == nullptr) return;
        DBG_MSG("value[%s]", decoded.get());
        proxyPassword = decoded.get();
        return;
    }
    DBG_MSG("fail to read ProxyEncodedPassword from [%s]", path);
    if (ConfReader::readValue(ini, section, "ProxyPassword", value)) {
        proxyPassword = value;
    } else {
        DBG_MSG("fail to read ProxyPassword from [%s]", path);
    }
}

}  // namespace KATD_SPACE
