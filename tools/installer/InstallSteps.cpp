#include "InstallSteps.h"

#include "CommandError.h"

#include <draizu/catalogue/LN_InstallOption.h>
#include <draizu/core/LN_ErrorCategory.h>
#include <draizu/io/LN_FileOpener.h>
#include <draizu/options/LN_CouldInstall.h>
#include <draizu/options/LN_InstallerOptions.h>
#include <draizu/prefs/LN_Preferences.h>

using namespace Qt::StringLiterals;

ExitCode InstallSteps::exitCodeOf(LN_ErrorStruct const & error)
{
    if (error.code.category() == LN_InstallerOptionsParseErrorCategory()) {
        bool const notFound = error.code == LN_InstallerOptionsParseError::InvalidOptions
                              || error.message.endsWith(u" does not contain an installation."_s);
        return notFound ? Exit_NotFound : Exit_Usage;
    }
    return error.code.category() == LN_AvailableInfoErrorCategory() ? Exit_NotFound : Exit_Failure;
}

LN_AvailableInfo InstallSteps::findBuild(LN_FileOpener & opener, LN_InstallerOptions const & options)
{
    opener.setInstallerOptions(options);
    LN_Result<QList<LN_AvailableInfo>> const catalogue = LN_AvailableInfo::getProductInfo(opener);
    if (catalogue.isError())
        throw CommandError(exitCodeOf(catalogue.error), catalogue.error.message);
    for (LN_AvailableInfo const & build : catalogue.value) {
        if (productFromString(build.feature.name) == options.product && LN_Util::couldInstall(options, build))
            return build;
    }
    throw CommandError(Exit_NotFound, u"No build of %1 %2 for %3 was found"_s.arg(
                                          QString::fromLatin1(productName(options.product)),
                                          options.version.toString(), options.platform));
}

std::unique_ptr<LN_Preferences> InstallSteps::preferencesOf(Context const & context)
{
    return context.preferencesPath.isEmpty() ? std::make_unique<LN_Preferences>()
                                             : std::make_unique<LN_Preferences>(context.preferencesPath);
}

void InstallSteps::applyDefaults(LN_InstallerOptions & options, QStringList const & given,
                                 LN_Preferences const & preferences, LN_AvailableInfo const & build)
{
    LN_InstallerOptions preferred = options;
    preferred.setDefaultsFromPreferences(preferences, build);
    if (options.installDir().isEmpty())
        options.setInstallDir(preferred.installDir());
    for (auto it = preferred.otherOptions.constBegin(); it != preferred.otherOptions.constEnd(); ++it)
        options.otherOptions.insert(it.key(), options.otherOptions.value(it.key(), it.value()));
    for (LN_InstallOption const & row : orvanisInstallOptions) {
        QString const name = QString::fromUtf8(row.name);
        if (preferred.features.contains(name) && !given.contains(QString::fromUtf8(row.optionId)))
            options.features.insert(name, preferred.features.value(name));
    }
    options.setDefaultValues();
}
