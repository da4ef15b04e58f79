#include "channels/CountUnit.h"

namespace corvane {

void CountUnit(CountAtEnd& fate, DecodeOutcome outcome) {
    switch (outcome) {
    case DecodeOutcome::Picture:
        return fate.Is(Counter::PicturesDecoded);
    case DecodeOutcome::HeldBack:
        return fate.Is(Counter::UnitsWithoutPicture, CORVANE_CAUSE_HELD_BACK);
    case DecodeOutcome::NoPicture:
        return fate.Is(Counter::UnitsWithoutPicture, CORVANE_CAUSE_NO_PICTURE);
    case DecodeOutcome::NoDecoder:
        return fate.Is(Counter::UnitsWithoutDecoder, CORVANE_CAUSE_NO_DECODER);
    case DecodeOutcome::AwaitsKeyFrame:
        return fate.Is(Counter::UnitsAwaitingKeyFrame, CORVANE_CAUSE_NO_KEY_FRAME);
    case DecodeOutcome::NoStartCode:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_NO_START_CODE);
    case DecodeOutcome::WrongType:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_WRONG_TYPE);
    case DecodeOutcome::Failed:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_DAMAGED);
    case DecodeOutcome::Size:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_SIZE);
    case DecodeOutcome::Dropped:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_DECODER_STUCK);
    }
}

}    // namespace corvane
