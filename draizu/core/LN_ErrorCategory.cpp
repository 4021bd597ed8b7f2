#include <draizu/core/LN_ErrorCategory.h>

#include <map>
#include <string>

namespace {

class TableCategory : public std::error_category
{
public:
    TableCategory(char const * name, char const * unknownText, std::map<int, char const *> table)
        : name_(name)
        , unknownText_(unknownText)
        , table_(std::move(table))
    {
        table_.emplace(0, "no error");
    }

    char const * name() const noexcept override { return name_; }

    std::string message(int value) const override
    {
        auto const found = table_.find(value);
        return found == table_.end() ? unknownText_ : found->second;
    }

private:
    char const * name_;
    char const * unknownText_;
    std::map<int, char const *> table_;
};

class LN_ServiceErrorCategoryClass final : public TableCategory
{
public:
    LN_ServiceErrorCategoryClass()
        : TableCategory("LN_ServiceError", "unknown error",
                        {{1, "insufficient permissions"},
                         {2, "unable to read the response from the service manager"},
                         {3, "the service does not exist"},
                         {4, "unsupported init system"},
                         {5, "an unspecified error occurred"}})
    {
    }
};

class LN_FileErrorCategoryClass final : public TableCategory
{
public:
    LN_FileErrorCategoryClass()
        : TableCategory("LN_FileError", "unknown error",
                        {{1, "you must be logged in to view this content"},
                         {2, "error processing archive"},
                         {3, "file not found"}})
    {
    }
};

class LN_AvailableInfoErrorCategoryClass final : public TableCategory
{
public:
    LN_AvailableInfoErrorCategoryClass()
        : TableCategory("LN_AvailableInfoError", "unknown error",
                        {{1, "file format is invalid"},
                         {2, "no versions were found"},
                         {3, "version not available"}})
    {
    }
};

class LN_InstallerOptionsParseErrorCategoryClass final : public TableCategory
{
public:
    LN_InstallerOptionsParseErrorCategoryClass()
        : TableCategory("LN_InstallerOptionsParseError", "unknown error",
                        {{1, "invalid syntax"}, {2, "invalid options"}, {3, "generic error"}})
    {
    }
};

class LN_InstallerOptionsDeserializeCategoryClass final : public TableCategory
{
public:
    LN_InstallerOptionsDeserializeCategoryClass()
        : TableCategory("LN_InstallerOptionsSeriailzeError", "unknown error",
                        {{1, "incorrect data format"},
                         {2, "a required key was missing"},
                         {3, "a required value had the incorrect type"},
                         {4, "too many keys"}})
    {
    }
};

namespace QtError {

class QFile final : public TableCategory
{
public:
    QFile()
        : TableCategory("QFile", "unknown QFile error",
                        {{1, "read error"},
                         {2, "write error"},
                         {3, "fatal error"},
                         {4, "too many files open"},
                         {5, "failed to open file"},
                         {6, "operation aborted"},
                         {7, "opereation timed out"},
                         {8, "unspecified error"},
                         {9, "could not remove file"},
                         {10, "failed to rename file"},
                         {11, "could not seek in file"},
                         {12, "could not rename file"},
                         {13, "permissions error"},
                         {14, "could not copy file"}})
    {
    }
};

class QNetwork final : public TableCategory
{
public:
    QNetwork()
        : TableCategory("QNetwork", "unknown QNetworkReply error",
                        {{1, "connection refused"},
                         {2, "remote host closed connection"},
                         {3, "host not found"},
                         {4, "connection timed out"},
                         {5, "connection was aborted"},
                         {6, "could not establish a secure connection"},
                         {7, "temporary network error"},
                         {8, "disconnected from network"},
                         {9, "background request was not allowed"},
                         {10, "too many redirects"},
                         {11, "insecure redirect"}})
    {
    }
};

class QJsonParse final : public TableCategory
{
public:
    QJsonParse()
        : TableCategory("QJsonParse", "unknown QJsonParseReply error",
                        {{1, "unterminated object"},
                         {2, "missing comma"},
                         {3, "unterminated array"},
                         {4, "missing colon"},
                         {5, "illegalvalue"},
                         {6, "unterminated number"},
                         {8, "illegal escape sequence"},
                         {9, "invalid UTF8 sequence"},
                         {10, "unterminated string"},
                         {11, "missing object"},
                         {12, "object is too deeply nested"},
                         {13, "input is too large"},
                         {14, "document contains trailing characters"}})
    {
    }
};

class QSettings final : public TableCategory
{
public:
    QSettings()
        : TableCategory("QSettings", "unknown QSettings error", {{1, "access error"}, {2, "format error"}})
    {
    }
};

} // namespace QtError

} // namespace

std::error_category const & LN_ServiceErrorCategory()
{
    static LN_ServiceErrorCategoryClass const category;
    return category;
}

std::error_category const & LN_FileErrorCategory()
{
    static LN_FileErrorCategoryClass const category;
    return category;
}

std::error_category const & LN_AvailableInfoErrorCategory()
{
    static LN_AvailableInfoErrorCategoryClass const category;
    return category;
}

std::error_category const & LN_InstallerOptionsParseErrorCategory()
{
    static LN_InstallerOptionsParseErrorCategoryClass const category;
    return category;
}

std::error_category const & LN_InstallerOptionsDeserializeErrorCategory()
{
    static LN_InstallerOptionsDeserializeCategoryClass const category;
    return category;
}

std::error_category const & QFileErrorCategory()
{
    static QtError::QFile const category;
    return category;
}

std::error_category const & QNetworkFileErrorCategory()
{
    static QtError::QNetwork const category;
    return category;
}

std::error_category const & QJsonParseErrorCategory()
{
    static QtError::QJsonParse const category;
    return category;
}

std::error_category const & QSettingsErrorCategory()
{
    static QtError::QSettings const category;
    return category;
}

std::error_code make_error_code(LN_ServiceError e)
{
    return {static_cast<int>(e), LN_ServiceErrorCategory()};
}

std::error_code make_error_code(LN_FileError e)
{
    return {static_cast<int>(e), LN_FileErrorCategory()};
}

std::error_code make_error_code(LN_AvailableInfoError e)
{
    return {static_cast<int>(e), LN_AvailableInfoErrorCategory()};
}

std::error_code make_error_code(LN_InstallerOptionsParseError e)
{
    return {static_cast<int>(e), LN_InstallerOptionsParseErrorCategory()};
}

std::error_code make_error_code(LN_InstallerOptionsDeserializeError e)
{
    return {static_cast<int>(e), LN_InstallerOptionsDeserializeErrorCategory()};
}
