using UnityEngine;

namespace Game.Combat
{
    public class Enemy : MonoBehaviour
    {
        [SerializeField] private int health = 30;

        public void TakeDamage(int amount)
        {
            health -= amount;
            if (health <= 0)
            {
                Destroy(gameObject);
            }
        }
    }
}
