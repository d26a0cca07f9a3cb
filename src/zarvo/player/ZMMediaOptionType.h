#pragma once

#include <utility>
#include <variant>

#include "zarvo/media/model/MediaCharacteristic.h"
#include "zarvo/media/model/MediaSelectionOption.h"
#include "zarvo/platform/Export.h"
#include "zarvo/player/ZMSubtitles.h"

namespace zarvo {

/// What a media option stands for: an external subtitle file, an option of the asset's
/// selection group for a characteristic, a playback speed, or subtitles switched off.
class ZARVO_EXPORT ZMMediaOptionType {
public:
    /// A side-loaded subtitle file.
    struct External {
        /// The file.
        ZMSubtitles subtitles;
        /// Equal files.
        bool operator==(const External&) const = default;
    };
    /// An option of the asset's selection group for a characteristic.
    struct MediaSelection {
        /// The asset's option.
        MediaSelectionOption option;
        /// The group's characteristic (audible or legible).
        MediaCharacteristic characteristic;
        /// Equal option and characteristic.
        bool operator==(const MediaSelection&) const = default;
    };
    /// A playback speed.
    struct SpeedRate {
        /// The rate: 1 is normal speed.
        float rate = 1;
        /// Equal rates.
        bool operator==(const SpeedRate&) const = default;
    };
    /// Subtitles switched off.
    struct NoSubtitles {
        /// Always equal.
        bool operator==(const NoSubtitles&) const = default;
    };
    /// One of the four cases.
    using Value = std::variant<External, MediaSelection, SpeedRate, NoSubtitles>;

    /// A side-loaded subtitle file.
    static ZMMediaOptionType external(ZMSubtitles subtitles) {
        return ZMMediaOptionType(External{std::move(subtitles)});
    }
    /// An option of the asset's group for `characteristic`.
    static ZMMediaOptionType mediaSelectionOption(MediaSelectionOption option,
                                                  MediaCharacteristic characteristic) {
        return ZMMediaOptionType(MediaSelection{std::move(option), std::move(characteristic)});
    }
    /// A playback speed.
    static ZMMediaOptionType speedRate(float rate) { return ZMMediaOptionType(SpeedRate{rate}); }
    /// Subtitles switched off.
    static ZMMediaOptionType noSubtitles() { return ZMMediaOptionType(NoSubtitles{}); }

    /// The case and its values; read with std::get_if or std::visit.
    const Value& value() const { return value_; }
    /// Whether this is the noSubtitles case.
    bool isNoSubtitles() const { return std::holds_alternative<NoSubtitles>(value_); }

    /// The same case with equal values.
    bool operator==(const ZMMediaOptionType&) const = default;

private:
    explicit ZMMediaOptionType(Value value) : value_(std::move(value)) {}

    Value value_;
};

}  // namespace zarvo
