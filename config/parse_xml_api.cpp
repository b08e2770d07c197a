// ParseXML_TocraAPI: loads "<dir>brimvel.xml" into the process-wide reader
// and fills the pipeline's 97-byte configuration record.
#include <cstdio>

#include "config/xml_config.h"
#include "frame/entry_guard.h"
#include "frame/hooks.h"
#include "frame/log.h"
#include "frame/platform.h"

#ifndef BRIMVEL_VERSION
#define BRIMVEL_VERSION "unknown"
#endif

namespace {

// The reader kept for the life of the library: one document, reloaded only
// when a call names another directory. Its constructor needs nothing but the
// parser's empty node, which is constant-initialised, so the order in which
// static objects are built does not matter.
XmlConfig g_xmlConfig;

int ParseXml(tagST_XML_PARSE_REQUEST* request) {
    if (request == nullptr || request->path == nullptr) {
        TOCRA_LOGE("ParseXML_TocraAPI input param pointer is invalid\n");
        return TOCRA_NULL_POINTER;
    }
    TOCRA_LOGI("BRIMVEL AP Version : __%s__%s__%s__\n", BRIMVEL_VERSION, __DATE__, __TIME__);
    TOCRA_LOGI("XML file path is [%s], the xmlInfo Addr is[%x]\n", request->path, request->xmlInfo);

    // A directory of 244 characters or more leaves no room for the file
    // name: answered as a file that cannot be loaded.
    char fileName[256];
    const int n = snprintf(fileName, sizeof fileName, "%sbrimvel.xml", request->path);
    bool noMemory = false;
    if (n < 0 || n >= static_cast<int>(sizeof fileName) || !XmlConfigAccess::Load(g_xmlConfig, fileName, &noMemory)) {
        // The document being read is released, and the reader is left with
        // nothing loaded.
        if (noMemory) {
            TOCRA_LOGE("ParseXML_TocraAPI malloc failed\n");
            return TOCRA_NO_MEMORY;
        }
        TOCRA_LOGI("xml XmlConfig.LoadConfig failed\n");
        return TOCRA_CONFIG_NOT_LOADED;
    }

    // The record's address is checked before anything is written through
    // it; a handle that does not convert answers as the flush step does.
    _stXmlConfigInfoHdr* out = static_cast<_stXmlConfigInfoHdr*>(tocra::ConvertAddr(request->xmlInfo));
    if (out == nullptr) {
        TOCRA_LOGE("cacheflush startAddr convert addr pointer error\n");
        return TOCRA_NULL_POINTER;
    }
    int ret;
    {
        XmlConfig copy(g_xmlConfig);
        ret = ImgProc_ParseXMLHdr(copy, out);
    }
    if (ret != 0) {
        TOCRA_LOGE("xml ImgProc_ParseXMLHdr error\n");
        return TOCRA_THREAD_FAILED;
    }
    TOCRA_LOGI("xml ImgProc_ParseXMLMfnr end, ret = %d\n", ret);

    unsigned char* start = static_cast<unsigned char*>(tocra::ConvertAddr(request->xmlInfo));
    if (start == nullptr) {
        TOCRA_LOGE("cacheflush startAddr convert addr pointer error\n");
        return TOCRA_NULL_POINTER;
    }
    platform_cacheflush(start, start + sizeof(_stXmlConfigInfoHdr));
    TOCRA_LOGI("exit func %s\n", "ParseXML_TocraAPI");
    return TOCRA_OK;
}

}  // namespace

extern "C" int ParseXML_TocraAPI(tagST_XML_PARSE_REQUEST* request) {
    TOCRA_ONE_CALL_AT_A_TIME("ParseXML_TocraAPI");
    return ParseXml(request);
}
