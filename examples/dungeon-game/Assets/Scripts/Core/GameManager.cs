using UnityEngine;
using UnityEngine.SceneManagement;
using Game.Player;

namespace Game.Core
{
    // Restarts the level a few seconds after the hero dies.
    public class GameManager : MonoBehaviour
    {
        [SerializeField] private PlayerHealth player;
        [SerializeField] private float restartDelay = 3f;

        private void OnEnable()
        {
            player.Died += OnPlayerDied;
        }

        private void OnDisable()
        {
            player.Died -= OnPlayerDied;
        }

        private void OnPlayerDied()
        {
            Invoke(nameof(Restart), restartDelay);
        }

        private void Restart()
        {
            SceneManager.LoadScene(SceneManager.GetActiveScene().buildIndex);
        }
    }
}
