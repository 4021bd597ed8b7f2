#pragma once

#include <draizu/draizu_export.h>

#include <QString>
#include <QVersionNumber>
#include <QtGlobal>

#include <array>

/// The products that can be installed, and the constant tables about them. The enumeration is
/// only the in-memory identity: files carry the names of productName and productFromString,
/// never the number. Everything here is constant: the lookups hold no state, cannot fail (an
/// unknown name or number is Invalid) and may be used from any thread.
enum LN_ProductID : qint32 {
    Product_Orvanis = 0,
    Product_Engine3dsMax = 1,
    Product_EngineMaya = 2,
    Product_EngineUnity = 3,
    Product_EngineUnreal = 4,
    Product_Oserver = 5,
    Product_LicenseServer = 6,
    Product_OQueueClient = 7,
    Product_OQueueServer = 8,
    Product_MarluxLabs = 9,
    Product_Optix = 10,
    Invalid = 11,
};

/// The product of a name, compared without regard to case; every product also answers to its
/// older and short names ("Engine Maya", "Maya", "oqclient", "Orvanis Server", ...). Anything
/// else, the empty text included, is Invalid.
DRAIZU_EXPORT LN_ProductID productFromString(QString const & name);

/// The name that files carry for a product, a constant text; "Invalid" for Invalid and any
/// unknown number. Product_Oserver writes as "oserver", although "Orvanis Server" also reads
/// as it.
DRAIZU_EXPORT char const * productName(LN_ProductID id);

/// One row of productDescriptions: constant texts, valid for the life of the program.
struct LN_ProductDescription
{
    LN_ProductID product;     ///< the product the row describes
    char const * description; ///< the text shown for it
    /// 0 for a product installed once per machine; any other value allows one installation per
    /// directory.
    qint32 scope;
};

/// The description shown for each product that has one. Product_Oserver and Invalid have no row.
inline constexpr std::array<LN_ProductDescription, 10> productDescriptions = {{
    {Product_Orvanis, "Installs all the application and support files required to run Orvanis.\n"
                      "This also installs the Orvanis Development Kit (ODK).",
     2},
    {Product_LicenseServer,
     "Installs the Orvanis License Server. This option configures Orvanis for use with a full commercial "
     "license, or limited commercial license. This can serve license locally as well as remotely.",
     0},
    {Product_OQueueClient,
     "Installs the OQueue Client, a local worker process that runs jobs distributed by the OQueue server", 0},
    {Product_OQueueServer,
     "Installs the OQueue Server, a general-purpose job management system that can be used to distribute "
     "renders and simulations.  Note that the OQeueue Server requires network licensing and does not work "
     "with local licensing.",
     0},
    {Product_MarluxLabs, "Installs the Marlux Labs tools", 1},
    {Product_Optix, "Installs the OptiX Denoiser", 2},
    {Product_Engine3dsMax, "The 3dsMax Plug-In allows you to use Orvanis Digital Assets inside 3ds Max.", 2},
    {Product_EngineMaya, "The Maya Plug-In allows you to use Orvanis Digital Assets inside Autodesk Maya.", 2},
    {Product_EngineUnity, "The Unity Plug-In allows you to use Orvanis Digital Assets inside Unity.", 2},
    {Product_EngineUnreal, "The Unreal Plug-In allows you to use Orvanis Digital Assets inside Unreal.", 2},
}};

/// The scope of a product's row in productDescriptions; a product without a row counts as 0.
/// Usable at compile time.
constexpr qint32 productScope(LN_ProductID id)
{
    for (LN_ProductDescription const & row : productDescriptions) {
        if (row.product == id)
            return row.scope;
    }
    return 0;
}

/// The products that bring Orvanis assets into another application.
inline constexpr std::array<LN_ProductID, 4> enginePluginProducts = {
    Product_Engine3dsMax, Product_EngineMaya, Product_EngineUnity, Product_EngineUnreal};

/// The launcher's own version, 21.0.512: it decides which builds this launcher may install.
DRAIZU_EXPORT extern QVersionNumber const launcherVersion;
