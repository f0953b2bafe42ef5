#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Record.h"

// What a media locator tells of the streams of its media.
namespace VantryLocalHub::dto {

struct StreamGroup
{
    std::string mTitle;
    int mVideoIndex = 0;
    int mAudioIndex = 0;
    int mDataIndex = 0;
    std::string mFilePath;

    static constexpr auto kFields =
        std::tuple{Always("mTitle", &StreamGroup::mTitle), Always("mVideoIndex", &StreamGroup::mVideoIndex),
                   Always("mAudioIndex", &StreamGroup::mAudioIndex), Always("mDataIndex", &StreamGroup::mDataIndex),
                   Always("mFilePath", &StreamGroup::mFilePath)};
    friend bool operator==(const StreamGroup&, const StreamGroup&) = default;
};

struct VideoFrameRect
{
    int mLeft = 0;
    int mTop = 0;
    int mRight = 0;
    int mBottom = 0;

    static constexpr auto kFields =
        std::tuple{Always("mLeft", &VideoFrameRect::mLeft), Always("mTop", &VideoFrameRect::mTop),
                   Always("mRight", &VideoFrameRect::mRight), Always("mBottom", &VideoFrameRect::mBottom)};
    friend bool operator==(const VideoFrameRect&, const VideoFrameRect&) = default;
};

struct PixelAspectRatio
{
    int mNumerator = 0;
    int mDenominator = 0;

    static constexpr auto kFields = std::tuple{Always("numerator", &PixelAspectRatio::mNumerator),
                                               Always("denominator", &PixelAspectRatio::mDenominator)};
    friend bool operator==(const PixelAspectRatio&, const PixelAspectRatio&) = default;
};

struct AlphaMatteColor
{
    double mRed = 0;
    double mGreen = 0;
    double mBlue = 0;

    static constexpr auto kFields =
        std::tuple{Always("mRed", &AlphaMatteColor::mRed), Always("mGreen", &AlphaMatteColor::mGreen),
                   Always("mBlue", &AlphaMatteColor::mBlue)};
    friend bool operator==(const AlphaMatteColor&, const AlphaMatteColor&) = default;
};

struct VYMediaVideoStreamInfo
{
    VideoFrameRect mVideoFrameRect;
    int mFieldType = 0;
    PixelAspectRatio mPixelAspectRatio;
    int mFrameAlphaType = 0;
    bool mIsFrameAlphaInverted = false;
    bool mIsFrameAlphaIgnored = false;
    int mPulldownCadence = 0;
    bool mCanRemovePulldown = false;
    bool mIsStill = false;
    bool mIsContinuousTime = false;
    bool mIsNumberedStills = false;
    std::int64_t mCodecTypeFourCC = 0;
    int mCodecType = 0;
    bool mPARUncertain = false;
    bool mAlphaInfoUncertain = false;
    bool mFieldTypeUncertain = false;
    bool mHasFields = false;
    std::string mVideoCodecDescription;
    bool mIsCaptionStream = false;
    AlphaMatteColor mOriginalAlphaMatteColor;

    static constexpr auto kFields =
        std::tuple{Always("mVideoFrameRect", &VYMediaVideoStreamInfo::mVideoFrameRect),
                   Always("mFieldType", &VYMediaVideoStreamInfo::mFieldType),
                   Always("mPixelAspectRatio", &VYMediaVideoStreamInfo::mPixelAspectRatio),
                   Always("mFrameAlphaType", &VYMediaVideoStreamInfo::mFrameAlphaType),
                   Always("mIsFrameAlphaInverted", &VYMediaVideoStreamInfo::mIsFrameAlphaInverted),
                   Always("mIsFrameAlphaIgnored", &VYMediaVideoStreamInfo::mIsFrameAlphaIgnored),
                   Always("mPulldownCadence", &VYMediaVideoStreamInfo::mPulldownCadence),
                   Always("mCanRemovePulldown", &VYMediaVideoStreamInfo::mCanRemovePulldown),
                   Always("mIsStill", &VYMediaVideoStreamInfo::mIsStill),
                   Always("mIsContinuousTime", &VYMediaVideoStreamInfo::mIsContinuousTime),
                   Always("mIsNumberedStills", &VYMediaVideoStreamInfo::mIsNumberedStills),
                   Always("mCodecTypeFourCC", &VYMediaVideoStreamInfo::mCodecTypeFourCC),
                   Always("mCodecType", &VYMediaVideoStreamInfo::mCodecType),
                   Always("mPARUncertain", &VYMediaVideoStreamInfo::mPARUncertain),
                   Always("mAlphaInfoUncertain", &VYMediaVideoStreamInfo::mAlphaInfoUncertain),
                   Always("mFieldTypeUncertain", &VYMediaVideoStreamInfo::mFieldTypeUncertain),
                   Always("mHasFields", &VYMediaVideoStreamInfo::mHasFields),
                   Always("mVideoCodecDescription", &VYMediaVideoStreamInfo::mVideoCodecDescription),
                   Always("mIsCaptionStream", &VYMediaVideoStreamInfo::mIsCaptionStream),
                   Always("mOriginalAlphaMatteColor", &VYMediaVideoStreamInfo::mOriginalAlphaMatteColor)};
    friend bool operator==(const VYMediaVideoStreamInfo&, const VYMediaVideoStreamInfo&) = default;
};

struct AudioChannel
{
    int mChannellabel = 0;

    static constexpr auto kFields = std::tuple{Always("channellabel", &AudioChannel::mChannellabel)};
    friend bool operator==(const AudioChannel&, const AudioChannel&) = default;
};

struct VYMediaAudioStreamInfo
{
    std::vector<AudioChannel> mAudioChannelLayout;
    int mAudioSampleType = 0;

    static constexpr auto kFields =
        std::tuple{Always("mAudioChannelLayout", &VYMediaAudioStreamInfo::mAudioChannelLayout),
                   Always("mAudioSampleType", &VYMediaAudioStreamInfo::mAudioSampleType)};
    friend bool operator==(const VYMediaAudioStreamInfo&, const VYMediaAudioStreamInfo&) = default;
};

struct VYMediaSourceDescription
{
    std::vector<StreamGroup> mStreamGroups;
    std::vector<VYMediaVideoStreamInfo> mVideoStreams;
    std::vector<VYMediaAudioStreamInfo> mAudioStreams;
    RawArray mDataStreams;
    bool mIsDurationComplete = false;
    std::string mInstanceString;
    bool mIsMulticamEnabled = false;

    static constexpr auto kFields =
        std::tuple{Always("mStreamGroups", &VYMediaSourceDescription::mStreamGroups),
                   Always("mVideoStreams", &VYMediaSourceDescription::mVideoStreams),
                   Always("mAudioStreams", &VYMediaSourceDescription::mAudioStreams),
                   Always("mDataStreams", &VYMediaSourceDescription::mDataStreams),
                   Always("mIsDurationComplete", &VYMediaSourceDescription::mIsDurationComplete),
                   Always("mInstanceString", &VYMediaSourceDescription::mInstanceString),
                   Always("mIsMulticamEnabled", &VYMediaSourceDescription::mIsMulticamEnabled)};
    friend bool operator==(const VYMediaSourceDescription&, const VYMediaSourceDescription&) = default;
};

}  // namespace VantryLocalHub::dto
