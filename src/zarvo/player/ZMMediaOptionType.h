#pragma once

#include <utility>
#include <variant>

#include "zarvo/media/model/MediaCharacteristic.h"
#include "zarvo/media/model/MediaSelectionOption.h"
#include "zarvo/platform/Export.h"
#include "zarvo/player/ZMSubtitles.h"

namespace zarvo {

// What a media option stands for: an external subtitle file, an option of the asset's
// selection group for a characteristic, a playback speed, or subtitles switched off.
class ZARVO_EXPORT ZMMediaOptionType {
public:
    struct External {
        ZMSubtitles subtitles;
        bool operator==(const External&) const = default;
    };
    struct MediaSelection {
        MediaSelectionOption option;
        MediaCharacteristic characteristic;
        bool operator==(const MediaSelection&) const = default;
    };
    struct SpeedRate {
        float rate = 1;
        bool operator==(const SpeedRate&) const = default;
    };
    struct NoSubtitles {
        bool operator==(const NoSubtitles&) const = default;
    };
    using Value = std::variant<External, MediaSelection, SpeedRate, NoSubtitles>;

    static ZMMediaOptionType external(ZMSubtitles subtitles) {
        return ZMMediaOptionType(External{std::move(subtitles)});
    }
    static ZMMediaOptionType mediaSelectionOption(MediaSelectionOption option,
                                                  MediaCharacteristic characteristic) {
        return ZMMediaOptionType(MediaSelection{std::move(option), std::move(characteristic)});
    }
    static ZMMediaOptionType speedRate(float rate) { return ZMMediaOptionType(SpeedRate{rate}); }
    static ZMMediaOptionType noSubtitles() { return ZMMediaOptionType(NoSubtitles{}); }

    // The case and its values; read with std::get_if or std::visit.
    const Value& value() const { return value_; }
    bool isNoSubtitles() const { return std::holds_alternative<NoSubtitles>(value_); }

    bool operator==(const ZMMediaOptionType&) const = default;

private:
    explicit ZMMediaOptionType(Value value) : value_(std::move(value)) {}

    Value value_;
};

}  // namespace zarvo
